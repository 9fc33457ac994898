#include "hw/regex_match.h"

#include "support/failing_allocation.h"
#include "support/standard_library.h"

#include <cstddef>
#include <gtest/gtest.h>
#include <new>
#include <string>
#include <utility>

namespace {

using Pair = std::pair<std::wstring, std::wstring>;  // pattern and text

void ExpectMatches(std::initializer_list<Pair> pairs, bool matches = true) {
    for (const auto& [pattern, text] : pairs) {
        EXPECT_EQ(RegexMatchesWhole(pattern, text), matches)
            << testing::PrintToString(pattern) << " " << testing::PrintToString(text);
    }
}

void ExpectNoMatches(std::initializer_list<Pair> pairs) {
    ExpectMatches(pairs, false);
}

TEST(RegexMatchesWhole, MatchesOnlyTheWholeText) {
    ExpectMatches({{L"abc", L"abc"}, {L"", L""}, {L".*b.*", L"abc"}, {L"a|abc", L"abc"}});
    ExpectNoMatches({{L"abc", L"abcd"},
                     {L"abc", L"zabc"},
                     {L"b", L"abc"},
                     {L"", L"a"},
                     {L"a", L""},
                     {L"a|b", L"ab"}});
}

TEST(RegexMatchesWhole, IgnoresTheCaseOfPatternAndText) {
    ExpectMatches({{L"abc", L"ABC"},
                   {L"ABC", L"abc"},
                   {L"aBc", L"AbC"},
                   {L"[a-c]+", L"ABC"},
                   {L"[A-C]+", L"abc"},
                   {L"(A)\\1", L"aA"}});
    ExpectNoMatches({{L"abc", L"abd"}, {L"[^a]", L"A"}, {L"[a-c]", L"D"}});
}

TEST(RegexMatchesWhole, ReadsTheEcmaScriptGrammar) {
    ExpectMatches({{L"\\d+\\s\\w+", L"12 a_9"},
                   {L"\\D\\S\\W", L"ab-"},
                   {L"a{2,3}", L"aaa"},
                   {L"a{2}", L"aa"},
                   {L"a{2,}", L"aaaaa"},
                   {L"a+?b??c*?", L"aac"},
                   {L"(?:ab)+", L"abab"},
                   {L"(?=ab)..", L"ab"},
                   {L"(?!ab)..", L"ac"},
                   {L"^ab$", L"ab"},
                   {L"\\bab\\b c\\Bd", L"ab cd"},
                   {L"\\x41\\u0042", L"AB"},
                   {L"\\x4a\\x4B\\u00fC\\u00Bf", L"JK\u00FC\u00BF"},
                   {L"a{10,12}", L"aaaaaaaaaaa"},
                   {L"\\t\\n\\r\\f\\v", L"\t\n\r\f\v"},
                   {L"[\\d\\-]+", L"1-2"},
                   {L"[[:digit:]]+", L"12"},
                   {L"\\(\\)\\.\\*", L"().*"},
                   {L"(a)(b)\\2\\1", L"abba"}});
    ExpectNoMatches({{L"a{2,3}", L"aaaa"},
                     {L"a{2,3}", L"a"},
                     {L"(?=ab)..", L"ac"},
                     {L"(?!ab)..", L"ab"},
                     {L"\\d", L"a"},
                     {L"\\.", L"a"},
                     {L"(a)(b)\\2\\1", L"abab"}});
    // From the other grammars, in which this would be two alternatives, and a repetition.
    ExpectNoMatches({{L"a\nb", L"a"}, {L"a\\{2\\}", L"aa"}});
}

// The two that both libraries support; GCC's lacks the grammar's other two.
TEST(RegexMatchesWhole, TakesALineEndForNoCharacterOfTheDot) {
    for (const wchar_t* lineEnd : {L"\n", L"\r", L"\r\n"}) {
        ExpectNoMatches({{L".*", lineEnd},
                         {L"a.*b", std::wstring(L"a") + lineEnd + L"b"},
                         {L"a.*", std::wstring(L"a") + lineEnd}});
        ExpectMatches({{L"a[^b]*b", std::wstring(L"a") + lineEnd + L"b"}});
    }
    ExpectMatches({{L".....", L"\t\v\f\x1B\x7F"}});
}

TEST(RegexMatchesWhole, TakesEveryOtherCharacter) {
    std::wstring text;
    for (unsigned code = 0; code <= 0xFFFF; ++code) {
        const auto character = static_cast<wchar_t>(code);
        const bool lineEnd =
            character == L'\n' || character == L'\r' || character == 0x2028 || character == 0x2029;
        if (!lineEnd) {
            text += character;
        }
    }
    ExpectMatches({{L".*", text}});
}

TEST(RegexMatchesWhole, TakesUnpairedSurrogatesAndZeros) {
    const std::wstring text = {L'a', 0xDC00, 0xD800, L'\0', 0xDBFF, L'b'};
    ExpectMatches({{L"a.*b", text}, {L"A....B", text}, {text, text}});
    ExpectNoMatches({{L"a...b", text}});
}

TEST(RegexMatchesWhole, MatchesNothingForABadPattern) {
    for (const wchar_t* pattern :
         {L"(", L")", L"(a", L"[", L"[a", L"*", L"+a", L"?", L"a{2,1}", L"a{", L"a{x}", L"\\",
          L"(?a)", L"[z-a]", L"[[:none:]]", L"\\1", L"\\x4", L"\\u12", L"(a)\\2"}) {
        ExpectNoMatches({{pattern, L""}, {pattern, L"a"}, {pattern, pattern}});
    }
}

TEST(RegexMatchesWhole, MatchesNothingForAPatternThatIsTooMuchForGccsEngine) {
    if (!test::GccsLibrary) {
        GTEST_SKIP() << "Microsoft's library makes no state for each repetition";
    }
    EXPECT_FALSE(RegexMatchesWhole(L"(((a{99}){99}){99})*", L""));
}

// No adapter's description is longer.
TEST(RegexMatchesWhole, TakesTheLongestTextOfAnAdapter) {
    const std::wstring many(254, L'x');
    ExpectMatches({{L"a.*b.*", L"a" + many + L"b"},
                   {L".*a.*b.*", many.substr(2) + L"abcd"},
                   {L".*", L"ab" + many}});
    ExpectNoMatches({{L"a.*b.*", L"a" + many}, {L".*a.*b.*", many}});
}

TEST(RegexMatchesWhole, EndsSoonForAnyNestedRepetition) {
    const std::wstring many(1000, L'a');
    ExpectNoMatches({{L"(a*)*b", many},
                     {L"(a+)+b", many},
                     {L"(a|aa)+b", many},
                     {L"(a|a)*b", many},
                     {L"(.*)*(.*)*b", many},
                     {L".*.*.*.*.*b", many},
                     {L"((((a*)*)*)*)*b", many}});
}

TEST(RegexMatchesWhole, MatchesAnyNestedRepetitionInGccsLibrary) {
    if (!test::GccsLibrary) {
        GTEST_SKIP() << "Microsoft's library gives such a text up, matching or not";
    }
    const std::wstring many(1000, L'a');
    ExpectMatches({{L"(a*)*b", many + L"b"}, {L".*.*.*.*.*a", many}});
}

TEST(RegexMatchesWhole, TakesATextFarLongerThanTheStackInGccsLibrary) {
    if (!test::GccsLibrary) {
        GTEST_SKIP() << "Microsoft's library has a limit, at which it gives up";
    }
    const std::wstring many(100'000, L'x');
    ExpectMatches({{L"a.*b.*", L"a" + many + L"b"}});
    ExpectNoMatches({{L"a.*b.*", many}, {L"a.*b.*", L"a" + many}});
}

TEST(RegexMatchesWhole, RemembersWhatAGroupMatchedInAnyTextOfAnAdapter) {
    for (const std::size_t length : {2U, 100U, 256U}) {
        ExpectMatches({{L"(.*)\\1", std::wstring(length, L'x')}});
        ExpectNoMatches({{L"(.*)\\1y", std::wstring(length, L'x')}});
    }
}

TEST(RegexMatchesWhole, RemembersNothingOfALongerTextInGccsLibrary) {
    if (!test::GccsLibrary) {
        GTEST_SKIP() << "Microsoft's library has one engine, which remembers";
    }
    ExpectNoMatches(
        {{L"(.*)\\1", std::wstring(258, L'x')}, {L"(.*)\\1", std::wstring(1'000'000, L'x')}});
}

TEST(RegexMatchesWhole, PassesOutOfMemoryOnToItsCaller) {
    // Each set takes memory in every library.
    std::wstring pattern;
    for (int set = 0; set < 200; ++set) {
        pattern += L"[ab]";
    }
    const test::FailingAllocation memory(100);
    EXPECT_THROW(RegexMatchesWhole(pattern, L"a"), std::bad_alloc);
}

}  // namespace
