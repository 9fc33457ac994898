// Seeded campaigns over input from outside the program. Each input has its own seed, which a
// failure names; the expected result is determined independently of the code under test.

#include "config/configure.h"
#include "config/path_resolvers.h"
#include "config/service_parameters.h"
#include "driver/actions.h"
#include "fs/directory_security.h"
#include "fs/path_helpers.h"
#include "hw/adapter_bitmask.h"
#include "registry/registry_setting.h"
#include "support/console_capture.h"
#include "support/environment_variable.h"
#include "support/fake_adapters.h"
#include "support/file_contents.h"
#include "support/native_keys.h"
#include "support/private_registry.h"
#include "support/registry_contents.h"
#include "support/temporary_directory.h"
#include "sweep/installed_product.h"
#include "sweep/run_rules.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iostream>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace {

using test::MakeKey;
using test::Printed;
using test::PutValue;
using test::RegistryValue;

// What is drawn for one input.
class Draw {
public:
    explicit Draw(std::uint32_t seed) : random_(seed) {}

    std::size_t Below(std::size_t bound) { return random_() % bound; }
    bool OneIn(std::size_t number) { return Below(number) == 0; }

    template <typename Range>
    auto Of(const Range& values) {
        return *std::next(std::begin(values),
                          static_cast<std::ptrdiff_t>(Below(std::size(values))));
    }

    // Usually short, rarely very long.
    std::size_t Length(std::size_t longest) {
        return Below(OneIn(20) ? longest + 1 : std::min<std::size_t>(longest + 1, 24));
    }

    // Letters and symbols of all kinds, unpaired surrogates, and characters with a meaning in a
    // path.
    wchar_t Character() {
        static constexpr wchar_t Signs[] =
            L"\\/:*?\"<>|%. \t\r\n\x0001\x007F\x00AE\x00FF\x0130\x4E2D"
            L"\xD83D\xDE00\xFFFF";
        switch (Below(4)) {
            case 0:
                return Signs[Below(std::size(Signs) - 1)];
            case 1:
                return static_cast<wchar_t>(1 + Below(0xFFFF));
            default:
                return static_cast<wchar_t>(L'!' + Below(L'~' - L'!'));
        }
    }

    std::wstring Text(std::size_t longest) {
        std::wstring text(Length(longest), L'\0');
        std::ranges::generate(text, [this] { return Character(); });
        return text;
    }

    std::vector<BYTE> Bytes(std::size_t most) {
        std::vector<BYTE> bytes(Length(most));
        std::ranges::generate(bytes, [this] { return static_cast<BYTE>(random_()); });
        return bytes;
    }

    // A registry value of any type, size and content: often one that is almost right.
    RegistryValue Value() {
        static constexpr DWORD Types[] = {
            REG_DWORD, REG_SZ,    REG_EXPAND_SZ, REG_MULTI_SZ,         REG_BINARY,
            REG_NONE,  REG_QWORD, REG_LINK,      REG_DWORD_BIG_ENDIAN, 0x1234};
        RegistryValue value;
        value.type = OneIn(2) ? Types[Below(3)] : Of(Types);
        if (value.type == REG_DWORD && !OneIn(4)) {
            value.bytes = Bytes(4);
            value.bytes.resize(4);
        } else if (OneIn(2)) {
            value = test::TextValue(Text(4000), value.type);
            if (OneIn(4)) {
                value.bytes.pop_back();
            }
        } else {
            value.bytes = Bytes(4000);
        }
        return value;
    }

private:
    std::mt19937 random_;
};

// Tries this many inputs, each with its own seed.
void Campaign(const char* name, std::uint32_t inputs, const std::function<void(Draw&)>& attempt) {
    for (std::uint32_t seed = 1; seed <= inputs; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        Draw draw(seed);
        attempt(draw);
        if (testing::Test::HasFailure()) {
            return;
        }
    }
    std::cout << "hostile input, " << name << ": " << inputs << " inputs\n";
}

// A value read as a number, as the platform would.
std::uint32_t NumberOr(const RegistryValue& value, std::uint32_t otherwise) {
    if (value.type != REG_DWORD || value.bytes.size() != 4) {
        return otherwise;
    }
    std::uint32_t number = 0;
    std::memcpy(&number, value.bytes.data(), sizeof(number));
    return number;
}

TEST(HostileInput, NumbersInTheRegistry) {
    const test::PrivateRegistry registry;
    Campaign("numbers in the registry", 12'000, [](Draw& draw) {
        const RegistryValue value = draw.Value();
        PutValue(HKEY_LOCAL_MACHINE, ServiceParametersKey, L"FinasetAction", value);
        const wchar_t* const arguments[] = {L"Finaset.exe"};
        EXPECT_EQ(ChooseActions(1, arguments), NumberOr(value, 15));
    });
}

TEST(HostileInput, VariablesOfTheEnvironment) {
    Campaign("variables of the environment", 4'000, [](Draw& draw) {
        std::wstring value =
            draw.OneIn(8) ? std::wstring(draw.Below(32'000), draw.Character()) : draw.Text(3000);
        std::erase(value, L'%');
        const test::EnvironmentVariable variable(L"FinasetTest", value);
        const std::wstring before = draw.Text(20);
        const std::wstring path = L"C:\\%FinasetTest%\\";
        const std::wstring expanded = ExpandEnvironmentPath(path);
        const std::wstring expected = L"C:\\" + value + L"\\";
        if (expected.size() < 2048) {
            EXPECT_EQ(expanded, expected);
        } else {
            EXPECT_LT(expanded.size(), 2048U);
        }
        EXPECT_EQ(PathExists(path),
                  ::GetFileAttributesW(expanded.c_str()) != INVALID_FILE_ATTRIBUTES);
        EXPECT_LT(ParentDirectoryOf(path + before).size(), 2048U);
    });
}

// Keys with all kinds of names below one to be deleted, in any tree. In a damaged one there are
// names with zeros, or links that lead back up.
class KeysToDelete {
public:
    explicit KeysToDelete(Draw& draw) {
        MakeKey(HKEY_LOCAL_MACHINE, L"SOFTWARE\\other\\below");
        ::RegCreateKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\stale", 0, nullptr, 0, KEY_ALL_ACCESS,
                          nullptr, &top_, nullptr);
        std::vector<HKEY> keys = {top_};
        for (std::size_t number = draw.Below(12); number > 0; --number) {
            const HKEY parent = draw.Of(keys);
            if (draw.OneIn(10)) {
                test::MakeLinkedKey(parent, L"link " + std::to_wstring(number), top_);
                damaged_ = true;
            } else {
                const std::wstring name = Name(draw);
                damaged_ = damaged_ || name.find(L'\0') != std::wstring::npos;
                keys.push_back(test::MakeNativeKey(parent, name));
            }
        }
        std::for_each(keys.begin() + 1, keys.end(), &::RegCloseKey);
    }
    KeysToDelete(const KeysToDelete&) = delete;
    KeysToDelete& operator=(const KeysToDelete&) = delete;
    ~KeysToDelete() {
        if (test::KeyExists(HKEY_LOCAL_MACHINE, L"SOFTWARE\\stale")) {
            test::RemoveNativeTree(top_);
        }
        ::RegCloseKey(top_);
    }

    [[nodiscard]] bool Damaged() const { return damaged_; }

private:
    // One that a key can have.
    static std::wstring Name(Draw& draw) {
        std::wstring name = draw.Text(254) + L"x";
        std::ranges::replace(name, L'\\', L'/');
        if (draw.OneIn(10)) {
            name[draw.OneIn(2) ? 0 : draw.Below(name.size())] = L'\0';
        }
        return name;
    }

    HKEY top_ = nullptr;
    bool damaged_ = false;
};

TEST(HostileInput, KeysInTheRegistry) {
    const test::PrivateRegistry registry;
    const std::vector<RegistrySetting> settings = {
        {.root = HKEY_LOCAL_MACHINE, .keyPath = L"SOFTWARE\\stale", .type = REG_SZ}};
    Campaign("keys in the registry", 1'000, [&settings](Draw& draw) {
        const KeysToDelete keys(draw);
        EXPECT_EQ(
            Printed([&] { DeleteSettings(settings); }),
            std::string("Deleting Registry Setting HKEY_LOCAL_MACHINE\\SOFTWARE\\stale\\= \t - "
                        "\t") +
                (keys.Damaged() ? "Failure\r\n" : "Success\r\n"));
        EXPECT_EQ(test::KeyExists(HKEY_LOCAL_MACHINE, L"SOFTWARE\\stale"), keys.Damaged());
        EXPECT_TRUE(test::KeyExists(HKEY_LOCAL_MACHINE, L"SOFTWARE\\other\\below"));
    });
}

// Whole runs go on to the end.
TEST(HostileInput, DamagedSettings) {
    const auto withTheKey = [](const std::function<void(HKEY)>& action) {
        HKEY key = nullptr;
        ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Halvane\\SAP", 0, KEY_ALL_ACCESS, &key);
        action(key);
        ::RegCloseKey(key);
    };
    const auto run = [&](const std::function<void(HKEY)>& damage) {
        test::InstalledProduct product;
        withTheKey(damage);
        product.Run(L"/CONFIGURE");
        EXPECT_THAT(test::BrokenRules(product, L"/CONFIGURE"), testing::IsEmpty());
        EXPECT_THAT(product.Log(), testing::HasSubstr("\\Halvane\\SAP\\= \t - \tFailure\r\n"));
        withTheKey(&test::RemoveNativeTree);
    };
    run([](HKEY key) { ::RegCloseKey(test::MakeNativeKey(key, L'\0' + std::wstring(L"name"))); });
    run([](HKEY key) { test::MakeLinkedKey(key, L"link", key); });
}

TEST(HostileInput, CommandLines) {
    const test::PrivateRegistry registry;
    PutValue(HKEY_LOCAL_MACHINE, ServiceParametersKey, L"FinasetAction", test::DwordValue(77));
    static constexpr std::pair<const wchar_t*, std::uint32_t> Options[] = {
        {L"/STOP", 1}, {L"/CONFIGURE", 4}, {L"/START", 8}, {L"/DISABLE", 16}, {L"/?", 0}};
    Campaign("command lines", 12'000, [](Draw& draw) {
        auto [option, actions] = draw.Of(Options);
        std::wstring argument = option;
        std::ranges::for_each(argument, [&draw](wchar_t& letter) {
            letter = draw.OneIn(2) && letter >= L'A' ? static_cast<wchar_t>(letter + 32) : letter;
        });
        if (draw.OneIn(2)) {
            // Not an option: one with an extra character somewhere, or anything.
            argument = draw.OneIn(2) ? draw.Text(32'000) + L"!" : argument + draw.Character();
            actions = 77;
        }
        const std::wstring second = draw.Text(100);
        const wchar_t* const arguments[] = {L"Finaset.exe", argument.c_str(), second.c_str()};
        std::uint32_t chosen = 0;
        Printed([&] { chosen = ChooseActions(draw.OneIn(2) ? 2 : 3, arguments); });
        EXPECT_EQ(chosen, actions) << testing::PrintToString(argument);
    });
}

// A valid file name.
std::wstring FileName(Draw& draw) {
    std::wstring name = draw.Text(200);
    std::erase_if(name, [](wchar_t character) {
        return character < L' ' || std::wcschr(L"\\/:*?\"<>|", character) != nullptr ||
               (character >= 0xD800 && character <= 0xDFFF) || character >= 0xFFFE;
    });
    return L"x" + name.substr(0, 80) + L"x";
}

TEST(HostileInput, FileNames) {
    const test::TemporaryDirectory directory;
    Campaign("file names", 1'500, [&directory](Draw& draw) {
        const std::wstring name = FileName(draw);
        const std::wstring path = directory / name;
        const HANDLE file = ::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                          FILE_ATTRIBUTE_NORMAL, nullptr);
        ASSERT_NE(file, INVALID_HANDLE_VALUE) << testing::PrintToString(name);
        ::CloseHandle(file);
        test::WaitUntilFree(path);
        EXPECT_EQ(ListDirectoryEntries(directory.Path()), std::vector<std::wstring>{name});
        EXPECT_FALSE(ChildHasLink(directory.Path()));
        ::DeleteFileW(path.c_str());
    });
}

TEST(HostileInput, AdapterDescriptions) {
    Campaign("adapter descriptions", 10'000, [](Draw& draw) {
        static constexpr const wchar_t* Starts[] = {L"Tarsel", L"TARSEL", L"tarse", L" Tarsel",
                                                    L""};
        static constexpr const wchar_t* Models[] = {L"QZ311", L"qz311", L"QZ31", L"QZ 311", L""};
        std::wstring description =
            draw.Of(Starts) + draw.Text(60) + draw.Of(Models) + draw.Text(60);
        // Whether these two are line ends is up to the library.
        std::erase_if(description, [](wchar_t sign) { return sign == 0x2028 || sign == 0x2029; });
        std::uint32_t mask = 0;
        Printed([&] { mask = MatchAdapterBitmask(description); });
        EXPECT_EQ(mask, test::MaskOf(description).value_or(0))
            << testing::PrintToString(description);
    });
}

TEST(HostileInput, TextsInTheRegistry) {
    const test::PrivateRegistry registry;
    Campaign("texts in the registry", 12'000, [](Draw& draw) {
        const RegistryValue value = draw.Value();
        PutValue(HKEY_LOCAL_MACHINE, ServiceParametersKey, L"ImageCacheDirectory", value);
        std::wstring text = L"as before";
        const LSTATUS error = GetStringSetting(HKEY_LOCAL_MACHINE, ServiceParametersKey,
                                               L"ImageCacheDirectory", text);
        const std::size_t size = value.bytes.size();
        const bool isText = value.type == REG_SZ || value.type == REG_EXPAND_SZ;
        const bool ends =
            size >= 2 && size % 2 == 0 && value.bytes[size - 2] == 0 && value.bytes[size - 1] == 0;
        if (isText && ends) {
            std::wstring expected(size / 2, L'\0');
            std::memcpy(expected.data(), value.bytes.data(), size);
            EXPECT_EQ(error, ERROR_SUCCESS);
            EXPECT_EQ(text, expected.c_str());
        } else {
            EXPECT_EQ(error, isText && size == 0 ? ERROR_SUCCESS : ERROR_INVALID_DATA);
            EXPECT_EQ(text, L"as before");
        }
        // Whatever it contains, the result is a path made from it, or none.
        for (const PathResolver& resolver :
             {ConfigurationFilesResolver, ImageCacheResolver, ActivityLogResolver}) {
            EXPECT_LE(resolver(draw.Text(300)).size(), 2048U);
        }
    });
}

}  // namespace
