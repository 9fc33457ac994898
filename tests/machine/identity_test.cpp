// What the shipping program tells the system: its version, and its manifest.

#include "support/installed_service.h"

#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <regex>
#include <string>
#include <vector>

namespace {

using testing::ElementsAre;

const std::string Version = FINASET_VERSION;

std::wstring Program() {
    return test::BesideThisProgram(L"Finaset.exe");
}

class VersionResource {
public:
    VersionResource() {
        const std::wstring program = Program();
        resource_.resize(::GetFileVersionInfoSizeW(program.c_str(), nullptr));
        ::GetFileVersionInfoW(program.c_str(), 0, static_cast<DWORD>(resource_.size()),
                              resource_.data());
    }

    [[nodiscard]] VS_FIXEDFILEINFO Numbers() const {
        const auto* numbers = static_cast<const VS_FIXEDFILEINFO*>(Value(L"\\"));
        return numbers == nullptr ? VS_FIXEDFILEINFO{} : *numbers;
    }

    [[nodiscard]] std::wstring Text(const std::wstring& name) const {
        const auto* text =
            static_cast<const wchar_t*>(Value(L"\\StringFileInfo\\040904B0\\" + name));
        return text == nullptr ? L"" : text;
    }

    // The language, and the code page.
    [[nodiscard]] std::vector<WORD> Translation() const {
        const auto* words = static_cast<const WORD*>(Value(L"\\VarFileInfo\\Translation"));
        return words == nullptr ? std::vector<WORD>() : std::vector<WORD>(words, words + 2);
    }

private:
    [[nodiscard]] const void* Value(const std::wstring& path) const {
        void* value = nullptr;
        UINT size = 0;
        return ::VerQueryValueW(resource_.data(), path.c_str(), &value, &size) ? value : nullptr;
    }

    std::vector<std::byte> resource_;
};

std::string Dotted(DWORD high, DWORD low) {
    return std::to_string(HIWORD(high)) + "." + std::to_string(LOWORD(high)) + "." +
           std::to_string(HIWORD(low)) + "." + std::to_string(LOWORD(low));
}

TEST(Identity, TheVersionIsThatOfTheBuildInNumbersAndInText) {
    const VersionResource resource;
    const VS_FIXEDFILEINFO numbers = resource.Numbers();
    EXPECT_EQ(Dotted(numbers.dwFileVersionMS, numbers.dwFileVersionLS), Version + ".0");
    EXPECT_EQ(Dotted(numbers.dwProductVersionMS, numbers.dwProductVersionLS), Version + ".0");
    EXPECT_EQ(numbers.dwFileType, DWORD{VFT_APP});
    const std::wstring version(Version.begin(), Version.end());
    EXPECT_EQ(resource.Text(L"FileVersion"), version);
    EXPECT_EQ(resource.Text(L"ProductVersion"), version);
    EXPECT_THAT(resource.Translation(), ElementsAre(0x0409, 0x04B0));  // as the texts are looked up
}

TEST(Identity, TheNamesAreTheProducts) {
    const VersionResource resource;
    EXPECT_EQ(resource.Text(L"CompanyName"), L"Tarsel");
    EXPECT_EQ(resource.Text(L"ProductName"), L"Tarsel Lumetra");
    EXPECT_EQ(resource.Text(L"OriginalFilename"), L"Finaset.exe");
}

using Texts = std::vector<std::string>;

BOOL CALLBACK AddManifest(HMODULE module, const wchar_t* type, const wchar_t* name, WORD language,
                          LONG_PTR manifests) {
    const HRSRC resource = ::FindResourceExW(module, type, name, language);
    const auto* bytes = static_cast<const char*>(::LockResource(::LoadResource(module, resource)));
    reinterpret_cast<Texts*>(manifests)->emplace_back(bytes, ::SizeofResource(module, resource));
    return TRUE;
}

BOOL CALLBACK AddManifests(HMODULE module, const wchar_t* type, wchar_t* name, LONG_PTR manifests) {
    return ::EnumResourceLanguagesW(module, type, name, &AddManifest, manifests);
}

// In all languages, under all names: with more than one, the system would choose which counts.
Texts Manifests() {
    const HMODULE module = ::LoadLibraryExW(Program().c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE);
    Texts manifests;
    ::EnumResourceNamesW(module, RT_MANIFEST, &AddManifests,
                         reinterpret_cast<LONG_PTR>(&manifests));
    ::FreeLibrary(module);
    return manifests;
}

Texts Matches(const std::string& text, const char* pattern) {
    const std::regex regex(pattern);
    Texts matches;
    std::transform(std::sregex_iterator(text.begin(), text.end(), regex), {},
                   std::back_inserter(matches), [](const std::smatch& match) { return match[1]; });
    return matches;
}

// No other element may change anything: not the maximum path length, not the code page.
TEST(Identity, TheOneManifestNamesTheRightsAndTheSystemsAndNothingElse) {
    const Texts manifests = Manifests();
    ASSERT_EQ(manifests.size(), 1U);
    EXPECT_THAT(
        Matches(manifests[0], "<(\\w+)"),
        ElementsAre("assembly", "trustInfo", "security", "requestedPrivileges",
                    "requestedExecutionLevel", "compatibility", "application", "supportedOS"));
    EXPECT_THAT(Matches(manifests[0], "level=\"(\\w+)\""), ElementsAre("asInvoker"));
    EXPECT_THAT(Matches(manifests[0], "uiAccess=\"(\\w+)\""), ElementsAre("false"));
    EXPECT_THAT(Matches(manifests[0], "supportedOS Id=\"(.*?)\""),
                ElementsAre("{8e0f7a12-bfb3-4fe8-b9a5-48fd50a15a9a}"));
}

}  // namespace
