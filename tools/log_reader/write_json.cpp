#include "log_reader/judge.h"
#include "log_reader/writers.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace reader {

namespace {

// In ASCII. The log's bytes are the first characters of Unicode.
std::string Quoted(std::string_view text) {
    constexpr std::string_view Digits = "0123456789abcdef";
    std::string quoted = "\"";
    for (const char character : text) {
        const auto code = static_cast<unsigned char>(character);
        if (character == '"' || character == '\\') {
            quoted += '\\';
            quoted += character;
        } else if (IsControl(character) || !IsAscii(character)) {
            quoted += "\\u00";
            quoted += Digits[code / Digits.size()];
            quoted += Digits[code % Digits.size()];
        } else {
            quoted += character;
        }
    }
    return quoted + '"';
}

template <typename Element, typename Write>
std::string Array(const std::vector<Element>& elements, const Write& write) {
    std::string array = "[";
    for (const Element& element : elements) {
        array += (array.size() == 1 ? "" : ", ") + write(element);
    }
    return array + ']';
}

std::string Number(std::string_view name, std::size_t number) {
    return Quoted(name) + ": " + std::to_string(number);
}

std::string Text(std::string_view name, std::string_view text) {
    return Quoted(name) + ": " + Quoted(text);
}

std::string Texts(std::string_view name, const std::vector<std::string>& texts) {
    return Quoted(name) + ": " + Array(texts, &Quoted);
}

std::string Write(const Item& item) {
    return "\n    {" + Number("line", item.line) + ", " +
           Text("judgement", NameOf(item.judgement)) + ", " + Text("verdict", item.verdict) + ", " +
           Text("reason", item.reason) + ", " + Texts("names", item.names) + ", " +
           Text("text", item.text) + '}';
}

}  // namespace

std::string WriteJson(const Report& report) {
    std::string json = "{\n";
    json += std::string("  \"attention\": ") + (NeedsAttention(report) ? "true" : "false") + ",\n";
    json += "  " + Text("summary", Summary(report)) + ",\n";
    json += "  " + Number("ok", Count(report, Judgement::Fine)) + ",\n";
    json += "  " + Number("expected", Count(report, Judgement::Expected)) + ",\n";
    json += "  " + Number("attention_items", Count(report, Judgement::Attention)) + ",\n";
    json += "  " + Number("unknown", Count(report, Judgement::Unknown)) + ",\n";
    json += "  " + Texts("findings", report.findings) + ",\n";
    json += "  " + Texts("notes", report.notes) + ",\n";
    json += "  \"sections\": " + Array(report.sections, [](const Section& section) {
                return "\n   {" + Number("line", section.line) + ", " +
                       Text("title", section.title) +
                       ", \"items\": " + Array(section.items, &Write) + '}';
            });
    return json + "\n}\n";
}

}  // namespace reader
