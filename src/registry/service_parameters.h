#pragma once

// The product's one configuration key, under HKEY_LOCAL_MACHINE.
inline constexpr wchar_t ServiceParametersKey[] =
    L"SYSTEM\\CurrentControlSet\\Services\\Tarsel Nimbus Network Service\\Parameters";
