#include "verify/write.h"

#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace verify {

namespace {

constexpr std::size_t VerdictWidth = 9;
constexpr std::size_t KindWidth = 11;

constexpr wchar_t FirstPrintable = L' ';
constexpr wchar_t Delete = L'\x7F';
constexpr wchar_t EndOfControls = L'\xA0';

std::string Padded(std::string_view text, std::size_t width) {
    std::string padded(text);
    padded.resize(std::max(width, padded.size() + 1), ' ');
    return padded;
}

// Characters that could control a terminal are shown escaped.
std::string Shown(std::wstring text) {
    for (wchar_t& character : text) {
        if (character < FirstPrintable || (character >= Delete && character < EndOfControls)) {
            character = L'?';
        }
    }
    constexpr std::size_t MostBytes = 3;  // of one character of UTF-16 in UTF-8
    std::string bytes(text.size() * MostBytes, '\0');
    const int length = ::WideCharToMultiByte(
        CP_UTF8, 0, text.data(), static_cast<int>(text.size()), bytes.data(),
        static_cast<int>(bytes.size()), /*lpDefaultChar=*/nullptr, /*lpUsedDefaultChar=*/nullptr);
    bytes.resize(static_cast<std::size_t>(length));
    return bytes;
}

std::string Line(const Row& row) {
    std::string line = Padded(NameOf(row.finding.verdict), VerdictWidth) +
                       Padded(row.kind, KindWidth) + Shown(row.name);
    if (row.finding.verdict == Verdict::Differs) {
        line += ": expected " + Shown(row.expected) + ", found " + Shown(row.finding.text);
    } else if (row.finding.verdict == Verdict::Unknown) {
        line += ": " + Shown(row.finding.text);
    }
    return line + '\n';
}

std::string Escaped(wchar_t character) {
    constexpr std::string_view Digits = "0123456789abcdef";
    constexpr unsigned Highest = 12;
    constexpr unsigned Bits = 4;
    std::string escaped = "\\u";
    for (unsigned digit = 0; digit <= Highest; digit += Bits) {
        escaped +=
            Digits[(static_cast<std::uint16_t>(character) >> (Highest - digit)) % Digits.size()];
    }
    return escaped;
}

// In ASCII. Names can have half of a surrogate pair, and JSON's grammar allows it, but some readers
// refuse it: it is written as text, by its code.
std::string Quoted(std::wstring_view text) {
    std::string quoted = "\"";
    for (std::size_t index = 0; index < text.size(); ++index) {
        const wchar_t character = text[index];
        const bool isPair =
            index + 1 < text.size() && IS_SURROGATE_PAIR(character, text[index + 1]);
        if (isPair) {
            quoted += Escaped(character) + Escaped(text[++index]);
        } else if (IS_HIGH_SURROGATE(character) || IS_LOW_SURROGATE(character)) {
            quoted += '\\' + Escaped(character);
        } else if (character == L'"' || character == L'\\') {
            quoted += '\\';
            quoted += static_cast<char>(character);
        } else if (character < FirstPrintable || character >= Delete) {
            quoted += Escaped(character);
        } else {
            quoted += static_cast<char>(character);
        }
    }
    return quoted + '"';
}

std::string Quoted(std::string_view ascii) {
    return Quoted(std::wstring(ascii.begin(), ascii.end()));
}

template <typename Text>
std::string Member(std::string_view name, const Text& text) {
    return Quoted(name) + ':' + Quoted(text);
}

std::string Number(std::string_view name, std::size_t number) {
    return Quoted(name) + ':' + std::to_string(number);
}

std::string Object(const Row& row) {
    return '{' + Member("kind", std::string_view(row.kind)) + ',' +
           Member("name", std::wstring_view(row.name)) + ',' +
           Member("verdict", NameOf(row.finding.verdict)) + ',' +
           Member("expected", std::wstring_view(row.expected)) + ',' +
           Member("found", std::wstring_view(row.finding.text)) + '}';
}

}  // namespace

std::string_view NameOf(Verdict verdict) {
    switch (verdict) {
        case Verdict::Ok:
            return "ok";
        case Verdict::Differs:
            return "DIFFERS";
        default:
            return "UNKNOWN";
    }
}

std::string WriteText(const Report& report) {
    std::string text;
    for (const Row& row : report.rows) {
        text += Line(row);
    }
    return text + std::to_string(report.rows.size()) +
           " rows: " + std::to_string(Count(report, Verdict::Ok)) + " ok, " +
           std::to_string(Count(report, Verdict::Differs)) + " DIFFERS, " +
           std::to_string(Count(report, Verdict::Unknown)) + " UNKNOWN\n";
}

std::string WriteJson(const Report& report) {
    std::string json = '{' + Member("computer", std::wstring_view(report.computer)) + ',' +
                       Member("version", std::string_view(report.version)) + ',' +
                       Number("actions", report.actions) + ',' +
                       Number("ok", Count(report, Verdict::Ok)) + ',' +
                       Number("differs", Count(report, Verdict::Differs)) + ',' +
                       Number("unknown", Count(report, Verdict::Unknown)) + ",\"rows\":[";
    const char* separator = "";
    for (const Row& row : report.rows) {
        json += separator + Object(row);
        separator = ",";
    }
    return json + "]}\n";
}

}  // namespace verify
