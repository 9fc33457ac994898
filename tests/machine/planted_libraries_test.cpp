// Libraries under names of the system's own, planted where a careless program searches: beside the
// program, and in the current directory.

#include "machine/linked_libraries.h"
#include "machine/machine.h"
#include "support/installed_service.h"
#include "support/on_wine.h"
#include "support/registry_contents.h"
#include "support/temporary_directory.h"

#include <windows.h>

#include <algorithm>
#include <cwctype>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

using test::BesideThisProgram;
using test::Machine;
using test::TemporaryDirectory;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::IsSupersetOf;

std::wstring LowerCase(std::wstring text) {
    std::transform(text.begin(), text.end(), text.begin(), std::towlower);
    return text;
}

std::filesystem::path SystemDirectory() {
    wchar_t path[MAX_PATH] = {};
    ::GetSystemDirectoryW(path, MAX_PATH);
    return path;
}

// What the program is linked with, and what these libraries are linked with in turn. Windows loads
// them only from its own directory (its "known DLLs"); Wine has no such list.
void AddLinkedLibraries(const std::filesystem::path& file, std::set<std::wstring>& names) {
    for (const std::string& library : test::LinkedLibraries(file)) {
        const std::wstring name = LowerCase({library.begin(), library.end()});
        if (names.insert(name).second) {
            AddLinkedLibraries(SystemDirectory() / name, names);
        }
    }
}

// The names of the system's other libraries.
std::vector<std::wstring> LibrariesToPlant() {
    std::set<std::wstring> linked = {
        L"imm32.dll"};  // a known one too, which user32 loads by itself
    AddLinkedLibraries(BesideThisProgram(L"Finaset.exe"), linked);
    std::vector<std::wstring> names;
    for (const auto& file : std::filesystem::directory_iterator(SystemDirectory())) {
        const std::wstring name = LowerCase(file.path().filename());
        if (file.path().extension() == L".dll" && !linked.contains(name)) {
            names.push_back(name);
        }
    }
    return names;
}

// While it lives, a directory has a library of each name, which Wine prefers to its own.
class PlantedLibraries {
public:
    PlantedLibraries(std::filesystem::path directory, const std::vector<std::wstring>& names)
        : directory_(std::move(directory)) {
        for (const std::wstring& name : names) {
            // Separate files: for Wine two names of one file are one library.
            std::filesystem::copy_file(BesideThisProgram(L"stand_in_planted_library.dll"),
                                       directory_ / name);
            const std::wstring stem = std::filesystem::path(name).stem();
            test::PutValue(HKEY_CURRENT_USER, OfTheProgram + L"\\DllOverrides", stem,
                           test::TextValue(L"native,builtin"));
        }
    }
    PlantedLibraries(const PlantedLibraries&) = delete;
    PlantedLibraries& operator=(const PlantedLibraries&) = delete;
    ~PlantedLibraries() { ::RegDeleteTreeW(HKEY_CURRENT_USER, OfTheProgram.c_str()); }

    // The names of those that were loaded.
    [[nodiscard]] std::vector<std::wstring> Loaded() const {
        std::vector<std::wstring> names;
        for (const auto& file : std::filesystem::directory_iterator(directory_)) {
            if (file.path().extension() == L".loaded") {
                names.push_back(file.path().stem());
            }
        }
        return names;
    }

private:
    static inline const std::wstring OfTheProgram = L"Software\\Wine\\AppDefaults\\Finaset.exe";

    std::filesystem::path directory_;
};

class PlantedLibrariesTest : public testing::Test {
protected:
    // Everything that a whole run loads is among the names: what it loads itself, what the tasks
    // need, and their dependencies.
    void SetUp() override {
        if (!test::OnWine()) {
            GTEST_SKIP() << "Windows has more libraries than can be planted; see OnWindows";
        }
        names = LibrariesToPlant();
        ASSERT_THAT(names, IsSupersetOf({L"iphlpapi.dll", L"nsi.dll", L"xmllite.dll"}));
        machine.InstallProduct();
    }

    void ExpectNoneLoaded(const PlantedLibraries& planted) const {
        EXPECT_THAT(machine.Run().log, EndsWith("FIRST RUN - FINISHED\r\n"));
        EXPECT_THAT(planted.Loaded(), IsEmpty());
    }

    Machine machine;
    std::vector<std::wstring> names;
};

TEST_F(PlantedLibrariesTest, AreNotLoadedFromBesideTheProgram) {
    ExpectNoneLoaded(PlantedLibraries(machine.ProgramDirectory(), names));
}

TEST_F(PlantedLibrariesTest, AreNotLoadedFromTheCurrentDirectory) {
    const TemporaryDirectory directory;
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(directory.Path());
    ExpectNoneLoaded(PlantedLibraries(directory.Path(), names));
    std::filesystem::current_path(before);
}

// The same libraries, and a program that loads what it finds first.
TEST_F(PlantedLibrariesTest, AreLoadedByAProgramThatDoesNotSayWhereFrom) {
    machine.InstallProgram(L"stand_in_library_loader.exe", L"Finaset.exe");
    const PlantedLibraries planted(machine.ProgramDirectory(), names);
    static_cast<void>(machine.Run(L"iphlpapi.dll"));
    EXPECT_THAT(planted.Loaded(), ElementsAre(L"iphlpapi.dll"));
}

}  // namespace
