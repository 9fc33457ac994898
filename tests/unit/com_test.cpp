#include "tasks/com.h"

#include "support/com_object.h"
#include "support/import_hook.h"
#include "support/no_memory.h"

#include <windows.h>

#include <oleauto.h>

#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <utility>

// The hooked function's attributes do not belong in the hook's type.
#pragma GCC diagnostic ignored "-Wignored-attributes"

namespace {

using test::ImportHook;
using Utils::ComError;
using Utils::ComPointer;

std::wstring MessageOf(DWORD result) {
    return ComError(static_cast<HRESULT>(result)).MessageText();
}

// Leaves an error object without a description to the thread.
ComPointer<IErrorInfo> LeaveError() {
    ICreateErrorInfo* created = nullptr;
    ::CreateErrorInfo(&created);
    const ComPointer<ICreateErrorInfo> createdOwner(created);
    IErrorInfo* error = nullptr;
    created->QueryInterface(__uuidof(IErrorInfo), reinterpret_cast<void**>(&error));
    ::SetErrorInfo(0, error);
    return ComPointer<IErrorInfo>(error);
}

class LeavesErrors : public ISupportErrorInfo {
public:
    HRESULT STDMETHODCALLTYPE InterfaceSupportsErrorInfo(REFIID) override { return S_OK; }
};

class FailingErrorInfo : public IErrorInfo {
public:
    HRESULT STDMETHODCALLTYPE GetDescription(BSTR* text) override {
        *text = ::SysAllocString(L"half a text");
        return E_FAIL;
    }
    HRESULT STDMETHODCALLTYPE GetGUID(GUID*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetSource(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetHelpFile(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetHelpContext(DWORD*) override { return E_NOTIMPL; }
};

// The system has this one message for every code, or none.
class SystemText {
public:
    explicit SystemText(std::wstring text) : text_(std::move(text)) {}

    [[nodiscard]] int TimesAsked() const { return timesAsked_; }

private:
    std::wstring text_;
    int timesAsked_ = 0;
    ImportHook<&::FormatMessageW> hook_{
        [this](DWORD, LPCVOID, DWORD, DWORD, LPWSTR text, DWORD, va_list*) -> DWORD {
            ++timesAsked_;
            if (!text_.empty()) {
                const SIZE_T bytes = (text_.size() + 1) * sizeof(wchar_t);
                const HLOCAL copy = ::LocalAlloc(LMEM_FIXED, bytes);
                std::memcpy(copy, text_.c_str(), bytes);
                std::memcpy(text, &copy, sizeof(copy));
            }
            return static_cast<DWORD>(text_.size());
        }};
};

TEST(ComErrorMessage, IsTheSystemsForTheResult) {
    wchar_t text[200] = {};
    ASSERT_GT(::FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM, nullptr,
                               static_cast<DWORD>(E_ACCESSDENIED), 0, text, 200, nullptr),
              2U);
    EXPECT_EQ(MessageOf(0x80070005) + L"\r\n", text);
}

TEST(ComErrorMessage, IsAskedForWithoutInsertsInTheNeutralLanguage) {
    const ImportHook<&::FormatMessageW> hook([](DWORD flags, LPCVOID source, DWORD message,
                                                DWORD language, LPWSTR, DWORD size,
                                                va_list* arguments) -> DWORD {
        EXPECT_EQ(flags, 0x1300U);  // allocate, from the system, ignore inserts
        EXPECT_EQ(source, nullptr);
        EXPECT_EQ(message, 0x80070005U);
        EXPECT_EQ(language, 0U);
        EXPECT_EQ(size, 0U);
        EXPECT_EQ(arguments, nullptr);
        return 0;
    });
    EXPECT_EQ(MessageOf(0x80070005), L"Unknown error 0x80070005");
}

TEST(ComErrorMessage, LosesOneLineEndAtItsEnd) {
    for (const auto& [system, expected] : {std::pair{L"of\r\ntwo lines\r\n", L"of\r\ntwo lines"},
                                           {L"two at the end\r\n\r\n", L"two at the end\r\n"},
                                           {L"none", L"none"},
                                           {L"half a one\n", L"half a one\n"},
                                           {L"other half\r", L"other half\r"},
                                           {L"\r\n", L""}}) {
        const SystemText text(system);
        EXPECT_EQ(MessageOf(0x80070005), expected);
    }
}

TEST(ComErrorMessage, IsLookedUpOncePerError) {
    const SystemText text(L"text");
    const ComError error(E_FAIL);
    EXPECT_STREQ(error.MessageText(), L"text");
    EXPECT_STREQ(error.MessageText(), L"text");
    EXPECT_EQ(text.TimesAsked(), 1);
}

TEST(ComErrorMessage, IsMadeOfTheNumberWhereTheSystemHasNone) {
    const SystemText none(L"");
    EXPECT_EQ(MessageOf(0x80040200), L"IDispatch error #0");
    EXPECT_EQ(MessageOf(0x80040201), L"IDispatch error #1");
    EXPECT_EQ(MessageOf(0x8004FFFF), L"IDispatch error #65023");
    EXPECT_EQ(MessageOf(0x800401FF), L"Unknown error 0x800401FF");
    EXPECT_EQ(MessageOf(0x80050000), L"Unknown error 0x80050000");
    EXPECT_EQ(MessageOf(0x8004ABCD), L"IDispatch error #43469");
    EXPECT_EQ(MessageOf(0xFFFFFFFF), L"Unknown error 0xFFFFFFFF");
    EXPECT_EQ(MessageOf(0x80000001), L"Unknown error 0x80000001");
    EXPECT_EQ(MessageOf(0x1), L"Unknown error 0x1");
}

TEST(ComErrorMessage, IsMadeOfTheNumberForACodeThatTheSystemDoesNotKnow) {
    EXPECT_EQ(MessageOf(0x8ABC1234), L"Unknown error 0x8ABC1234");
}

TEST(ComError, HasNoDescriptionByItself) {
    EXPECT_EQ(ComError(E_FAIL).Description(), nullptr);
    EXPECT_EQ(ComError(E_FAIL).Result(), E_FAIL);
}

// The thread's error object is someone else's, and stays there.
TEST(ComError, HasNoDescriptionFromAnObjectThatLeavesNone) {
    const ComPointer<IErrorInfo> earlier = LeaveError();
    const ComPointer<IUnknown> source(new test::ComObject<test::TaskServiceStub, ITaskService>);
    EXPECT_EQ(ComError(E_FAIL, *source.Get(), __uuidof(ITaskService)).Description(), nullptr);
    IErrorInfo* left = nullptr;
    EXPECT_EQ(::GetErrorInfo(0, &left), S_OK);
    const ComPointer<IErrorInfo> leftOwner(left);
    EXPECT_EQ(left, earlier.Get());
}

TEST(ComError, HasNoDescriptionIfTheOneThatWasLeftIsNull) {
    const ComPointer<IErrorInfo> error = LeaveError();
    const ComPointer<IUnknown> source(new test::ComObject<LeavesErrors, ISupportErrorInfo>);
    EXPECT_EQ(ComError(E_FAIL, *source.Get(), __uuidof(ITaskService)).Description(), nullptr);
    IErrorInfo* left = nullptr;
    EXPECT_EQ(::GetErrorInfo(0, &left), S_FALSE);  // taken
}

// What it still leaves is released.
TEST(ComError, HasNoDescriptionIfTheOneThatWasLeftCannotBeRead) {
    const ComPointer<IErrorInfo> error(new test::ComObject<FailingErrorInfo, IErrorInfo>);
    ASSERT_EQ(::SetErrorInfo(0, error.Get()), S_OK);
    const ComPointer<IUnknown> source(new test::ComObject<LeavesErrors, ISupportErrorInfo>);
    EXPECT_EQ(ComError(E_FAIL, *source.Get(), __uuidof(ITaskService)).Description(), nullptr);
}

TEST(ComError, NeedsNoMemoryOfTheProgram) {
    bool asked = true;
    std::optional<ComError> error;
    {
        const test::NoMemory none;
        error.emplace(E_OUTOFMEMORY);
        asked = test::FailingAllocation::Failed();
    }
    EXPECT_FALSE(asked);
    EXPECT_STREQ(error->MessageText(), L"Unknown error 0x8007000E");
}

}  // namespace
