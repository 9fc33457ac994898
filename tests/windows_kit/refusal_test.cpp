// Where the kit refuses to run the tests. That it does on an older Windows, and on a machine with
// something of the product, is in windows_kit_test.sh.

#include "shared/owner.h"
#include "support/file_contents.h"
#include "support/installed_service.h"
#include "support/on_wine.h"
#include "support/temporary_directory.h"

#include <windows.h>

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

namespace {

using testing::HasSubstr;
using Utils::KernelHandle;

constexpr DWORD Refused = 2;
constexpr DWORD LimitMs = 60'000;

KernelHandle OwnToken() {
    HANDLE token = nullptr;
    ::OpenProcessToken(::GetCurrentProcess(), TOKEN_ALL_ACCESS, &token);
    return KernelHandle(token);
}

// This user's token without an administrator's rights. Wine filters no token, but has one.
KernelHandle OrdinaryToken() {
    const KernelHandle own = OwnToken();
    if (test::OnWine()) {
        TOKEN_LINKED_TOKEN linked = {};
        DWORD size = sizeof(linked);
        ::GetTokenInformation(own.Get(), TokenLinkedToken, &linked, size, &size);
        return KernelHandle(linked.LinkedToken);
    }
    HANDLE token = nullptr;
    ::CreateRestrictedToken(own.Get(), LUA_TOKEN, 0, nullptr, 0, nullptr, 0, nullptr, &token);
    return KernelHandle(token);
}

bool IsElevated(const KernelHandle& token) {
    TOKEN_ELEVATION elevation = {};
    DWORD size = sizeof(elevation);
    return !::GetTokenInformation(token.Get(), TokenElevation, &elevation, size, &size) ||
           elevation.TokenIsElevated != 0;
}

class WindowsKit : public testing::Test {
protected:
    // Asks whether the tests may run in this directory under this token, or the own one if null.
    // Expects the answer no, and returns the reason.
    std::string Reason(HANDLE token, const std::filesystem::path& place) {
        const std::filesystem::path answer = directory_ / L"answer";
        DWORD exitCode = 0;
        {
            SECURITY_ATTRIBUTES inheritable = {sizeof(inheritable), nullptr, TRUE};
            const KernelHandle file(::CreateFileW(answer.c_str(), GENERIC_WRITE, FILE_SHARE_READ,
                                                  &inheritable, CREATE_ALWAYS,
                                                  FILE_ATTRIBUTE_NORMAL, nullptr));
            STARTUPINFOW startup = {};
            startup.cb = sizeof(startup);
            startup.dwFlags = STARTF_USESTDHANDLES;
            startup.hStdOutput = file.Get();
            std::wstring command = L"windows_kit.exe check";
            PROCESS_INFORMATION info = {};
            const std::wstring program = test::BesideThisProgram(L"windows_kit.exe");
            EXPECT_TRUE(token == nullptr
                            ? ::CreateProcessW(program.c_str(), command.data(), nullptr, nullptr,
                                               TRUE, 0, nullptr, place.c_str(), &startup, &info)
                            : ::CreateProcessAsUserW(token, program.c_str(), command.data(),
                                                     nullptr, nullptr, TRUE, 0, nullptr,
                                                     place.c_str(), &startup, &info));
            const KernelHandle thread(info.hThread);
            const KernelHandle process(info.hProcess);
            ::WaitForSingleObject(process.Get(), LimitMs);
            ::GetExitCodeProcess(process.Get(), &exitCode);
        }
        EXPECT_EQ(exitCode, Refused);
        return test::FileText(answer).value_or("");
    }

    test::TemporaryDirectory directory_;
};

TEST_F(WindowsKit, RefusesAStartWithoutAnAdministratorsRights) {
    const KernelHandle token = OrdinaryToken();
    if (!token || IsElevated(token)) {
        GTEST_SKIP() << "no token of this user's is without an administrator's rights";
    }
    EXPECT_THAT(Reason(token.Get(), directory_.Path()),
                HasSubstr("The tests need an administrator's rights"));
}

TEST_F(WindowsKit, RefusesAPlaceThatAnAnsiPathOrALogCannotName) {
    if (!IsElevated(OwnToken())) {
        GTEST_SKIP() << "this is no administrator";
    }
    const std::filesystem::path place = directory_ / L"\u017B\u4E2D";
    std::filesystem::create_directory(place);
    EXPECT_THAT(Reason(nullptr, place), HasSubstr("a path of ASCII characters"));
}

}  // namespace
