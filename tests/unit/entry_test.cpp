#include "driver/entry.h"

#include "support/call_log.h"
#include "support/console_capture.h"
#include "support/import_hook.h"
#include "support/log_texts.h"

#include <windows.h>

#include <fcntl.h>
#include <io.h>
#include <objbase.h>

#include <cstdio>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <new>
#include <string>

namespace {

using test::ImportHook;
using test::Printed;
using testing::ElementsAre;

const std::string Usage = test::LogBegin + test::UsageText() + test::LogEnd;

// Runs the program with an option that changes nothing on the machine.
int RunUsage() {
    const wchar_t* const arguments[] = {L"C:\\X\\Finaset.exe", L"/?"};
    return RunProgram(2, arguments);
}

// How much was printed so far; the file contains nothing before it is flushed.
std::string Position() {
    const long position = std::ftell(stdout);
    return position == 0 ? "nothing printed" : std::to_string(position) + " characters printed";
}

TEST(RunProgram, ExitsWithCode0) {
    int code = -1;
    EXPECT_EQ(Printed([&] { code = RunUsage(); }), Usage);
    EXPECT_EQ(code, 0);
}

TEST(RunProgram, PutsStandardOutputIntoBinaryModeItself) {
    EXPECT_EQ(Printed([] {
                  ::_setmode(::_fileno(stdout), _O_TEXT);
                  RunUsage();
              }),
              Usage);
}

class RunProgramWithFakeCom : public testing::Test {
protected:
    test::CallLog calls;
    HRESULT initialised = S_OK;

private:
    ImportHook<&::CoInitializeEx> initialise_{[this](LPVOID reserved, DWORD model) {
        calls.Add("CoInitializeEx", reserved, model, Position());
        return initialised;
    }};
    ImportHook<&::CoUninitialize> uninitialise_{
        [this] { calls.Add("CoUninitialize", Position()); }};
};

TEST_F(RunProgramWithFakeCom, PreparesTheOutputThenComAndThenRuns) {
    ImportHook<&::_setmode> setMode([&](int file, int mode) {
        calls.Add("_setmode", file, mode, Position());
        return setMode.Forward(file, mode);
    });
    ImportHook<&::RegOpenKeyExW> firstCallOfTheDriver([&](auto... arguments) {
        calls.Add("RegOpenKeyExW");
        return firstCallOfTheDriver.Forward(arguments...);
    });
    Printed([] { RunUsage(); });
    const std::string binary = "_setmode(1, " + std::to_string(_O_BINARY) + ", nothing printed)";
    // The capture sets the mode before and after. 0 is the multithreaded model.
    EXPECT_THAT(
        calls.Lines(),
        ElementsAre(testing::StartsWith("_setmode("), binary,
                    "CoInitializeEx(null, 0, nothing printed)", "RegOpenKeyExW()",
                    "CoUninitialize(" + std::to_string(Usage.size()) + " characters printed)",
                    testing::StartsWith("_setmode(")));
}

TEST_F(RunProgramWithFakeCom, UninitialisesComJustWhenItWasInitialised) {
    const struct {
        HRESULT result;
        std::size_t uninitialised;
    } rows[] = {{S_OK, 1}, {S_FALSE, 1}, {E_FAIL, 0}, {RPC_E_CHANGED_MODE, 0}, {E_OUTOFMEMORY, 0}};
    std::size_t expected = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.result);
        initialised = row.result;
        int code = -1;
        EXPECT_EQ(Printed([&] { code = RunUsage(); }), Usage);
        EXPECT_EQ(code, 0);
        expected += row.uninitialised;
        EXPECT_THAT(calls.Of("CoUninitialize"), testing::SizeIs(expected));
    }
}

TEST_F(RunProgramWithFakeCom, ExitsWithCode0WhenOutOfMemory) {
    ImportHook<&::RegOpenKeyExW> open([](auto...) -> LSTATUS { throw std::bad_alloc(); });
    int code = -1;
    EXPECT_THAT(Printed([&] { code = RunUsage(); }), testing::EndsWith(test::LogEnd));
    EXPECT_EQ(code, 0);
    EXPECT_THAT(calls.Of("CoUninitialize"), testing::SizeIs(1));
}

}  // namespace
