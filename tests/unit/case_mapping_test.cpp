#include "driver/case_mapping.h"

#include "support/standard_library.h"

#include <algorithm>
#include <cwctype>
#include <gtest/gtest.h>
#include <locale>
#include <string>

namespace {

// Of a locale in which every letter is an X.
class CaseOfX : public std::ctype<wchar_t> {
    const wchar_t* do_toupper(wchar_t* first, const wchar_t* last) const override {
        std::fill(first, const_cast<wchar_t*>(last), L'X');
        return last;
    }
    const wchar_t* do_tolower(wchar_t* first, const wchar_t* last) const override {
        return do_toupper(first, last);
    }
};

std::wstring Upper(std::wstring text) {
    ToUpperInPlace(text);
    return text;
}

std::wstring Lower(std::wstring text) {
    ToLowerInPlace(text);
    return text;
}

std::wstring EveryCharacter() {
    std::wstring text;
    for (unsigned character = 0; character <= 0xFFFF; ++character) {
        text += static_cast<wchar_t>(character);
    }
    return text;
}

TEST(CaseMapping, MapsAsciiLetters) {
    EXPECT_EQ(Upper(L"abcdefghijklmnopqrstuvwxyz"), L"ABCDEFGHIJKLMNOPQRSTUVWXYZ");
    EXPECT_EQ(Upper(L"ABCDEFGHIJKLMNOPQRSTUVWXYZ"), L"ABCDEFGHIJKLMNOPQRSTUVWXYZ");
    EXPECT_EQ(Lower(L"ABCDEFGHIJKLMNOPQRSTUVWXYZ"), L"abcdefghijklmnopqrstuvwxyz");
    EXPECT_EQ(Lower(L"abcdefghijklmnopqrstuvwxyz"), L"abcdefghijklmnopqrstuvwxyz");
}

TEST(CaseMapping, LeavesOtherCharactersUnchanged) {
    const std::wstring text = L" /?0123456789-_.:;@[\\]^`{|}~\t\r\n";
    EXPECT_EQ(Upper(text), text);
    EXPECT_EQ(Lower(text), text);
}

TEST(CaseMapping, TakesAnEmptyString) {
    EXPECT_EQ(Upper(L""), L"");
    EXPECT_EQ(Lower(L""), L"");
}

TEST(CaseMapping, GoesOnAfterAnEmbeddedZero) {
    EXPECT_EQ(Upper(std::wstring(L"a\0b", 3)), std::wstring(L"A\0B", 3));
    EXPECT_EQ(Lower(std::wstring(L"A\0B", 3)), std::wstring(L"a\0b", 3));
}

// Each character for itself, as in the "C" locale, which the tests run in as the program does.
TEST(CaseMapping, IsTheCLocalesInGccsLibrary) {
    if (!test::GccsLibrary) {
        GTEST_SKIP()
            << "Microsoft's facet maps more letters than the C runtime does in this locale";
    }
    std::wstring upper;
    std::wstring lower;
    for (const wchar_t character : EveryCharacter()) {
        upper += static_cast<wchar_t>(std::towupper(character));
        lower += static_cast<wchar_t>(std::towlower(character));
    }
    EXPECT_TRUE(Upper(EveryCharacter()) == upper);  // EXPECT_EQ would print 64 K characters
    EXPECT_TRUE(Lower(EveryCharacter()) == lower);
}

TEST(CaseMapping, KeepsTheLocaleOfItsFirstUse) {
    Upper(L"first");
    const std::locale before = std::locale::global(std::locale(std::locale(), new CaseOfX));
    EXPECT_EQ(Upper(L"ab"), L"AB");
    EXPECT_EQ(Lower(L"AB"), L"ab");
    std::locale::global(before);
}

}  // namespace
