#include "log_reader/judge.h"
#include "log_reader/unicode.h"
#include "log_reader/writers.h"

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace reader {

namespace {

// The characters of a log that need no escape.
constexpr std::array<bool, 256> Plain = [] {
    std::array<bool, 256> plain{};
    for (std::size_t code = ' '; code < '\x7F'; ++code) {
        plain[code] = code != '"' && code != '\\';
    }
    return plain;
}();

// In ASCII.
class JsonWriter {
public:
    // On one line, or one line per item.
    explicit JsonWriter(bool oneLine) : oneLine_(oneLine) {
        constexpr std::size_t Usual = 0x4000;
        json_.reserve(Usual);
    }

    // The log's bytes are the first 256 Unicode characters.
    void Text(std::string_view text) {
        json_ += '"';
        const char* begin = text.data();  // of what needs no escape
        const char* const end = begin + text.size();
        for (const char* at = begin; at != end; ++at) {
            const auto code = static_cast<unsigned char>(*at);
            if (!Plain[code]) {
                json_.append(begin, at);
                Escape(code);
                begin = at + 1;
            }
        }
        json_.append(begin, end);
        json_ += '"';
    }

    // A name in UTF-8.
    void Name(std::string_view name) {
        constexpr char32_t FirstOfPairs = 0x10000;
        constexpr char32_t FirstHalves = 0xD800;
        constexpr char32_t SecondHalves = 0xDC00;
        constexpr unsigned BitsOfHalf = 10;
        constexpr char32_t MaskOfHalf = 0x3FF;
        json_ += '"';
        while (const std::optional<char32_t> character = TakeUtf8(name)) {
            if (*character >= FirstOfPairs) {
                Escape(FirstHalves + ((*character - FirstOfPairs) >> BitsOfHalf));
                Escape(SecondHalves + (*character & MaskOfHalf));
            } else if (*character < Plain.size() && Plain[*character]) {
                json_ += static_cast<char>(*character);
            } else {
                Escape(*character);
            }
        }
        json_ += '"';
    }

    // Of letters that stand for themselves.
    void Key(std::string_view name) {
        json_ += '"';
        json_ += name;
        json_ += "\": ";
    }

    void Number(std::string_view name, std::size_t number) {
        Key(name);
        json_ += std::to_string(number);
    }

    void Text(std::string_view name, std::string_view text) {
        Key(name);
        Text(text);
    }

    template <typename Elements, typename Write>
    void Array(std::string_view name, const Elements& elements, const Write& write) {
        Key(name);
        json_ += '[';
        bool first = true;
        for (const auto& element : elements) {
            Raw(first ? "" : ", ");
            write(element);
            first = false;
        }
        json_ += ']';
    }

    template <typename Strings>
    void Texts(std::string_view name, const Strings& texts) {
        Array(name, texts, [this](std::string_view text) { Text(text); });
    }

    void Raw(std::string_view text) { json_ += text; }

    // A line end, and the start of the next line.
    void Break(std::string_view indent) {
        if (!oneLine_) {
            json_ += '\n';
            json_ += indent;
        }
    }

    // Between the members of the report.
    void Comma() {
        json_ += oneLine_ ? ", " : ",";
        Break("  ");
    }

    std::string Take() { return std::move(json_); }

private:
    void Escape(char32_t code) {
        constexpr std::string_view Digits = "0123456789abcdef";
        if (code == '"' || code == '\\') {
            json_ += '\\';
            json_ += static_cast<char>(code);
            return;
        }
        json_ += "\\u";
        for (const unsigned shift : {12U, 8U, 4U, 0U}) {
            json_ += Digits[code >> shift & (Digits.size() - 1)];
        }
    }

    bool oneLine_;
    std::string json_{};
};

void Write(JsonWriter& json, const Item& item) {
    json.Break("    ");
    json.Raw("{");
    json.Number("line", item.line);
    json.Raw(", ");
    json.Text("judgement", NameOf(item.judgement));
    json.Raw(", ");
    json.Text("verdict", item.verdict);
    json.Raw(", ");
    json.Text("reason", item.reason);
    json.Raw(", ");
    json.Texts("names", item.names);
    json.Raw(", ");
    json.Text("text", item.text);
    json.Raw("}");
}

void Write(JsonWriter& json, const Section& section) {
    json.Break("   ");
    json.Raw("{");
    json.Number("line", section.line);
    json.Raw(", ");
    json.Text("title", section.title);
    json.Raw(", ");
    json.Array("items", section.items, [&](const Item& item) { Write(json, item); });
    json.Raw("}");
}

void Write(JsonWriter& json, const Report& report) {
    json.Key("attention");
    json.Raw(NeedsAttention(report) ? "true" : "false");
    json.Comma();
    json.Text("summary", Summary(report));
    json.Comma();
    json.Number("ok", Count(report, Judgement::Fine));
    json.Comma();
    json.Number("expected", Count(report, Judgement::Expected));
    json.Comma();
    json.Number("attention_items", Count(report, Judgement::Attention));
    json.Comma();
    json.Number("unknown", Count(report, Judgement::Unknown));
    json.Comma();
    json.Texts("findings", report.findings);
    json.Comma();
    json.Texts("notes", report.notes);
    json.Comma();
    json.Array("sections", report.sections, [&](const Section& section) { Write(json, section); });
    json.Break("");
    json.Raw("}\n");
}

}  // namespace

std::string WriteJson(const Report& report) {
    JsonWriter json(/*oneLine=*/false);
    json.Raw("{");
    json.Break("  ");
    Write(json, report);
    return json.Take();
}

std::string WriteJsonLine(std::string_view path, const Report& report) {
    JsonWriter json(/*oneLine=*/true);
    json.Raw("{");
    json.Key("path");
    json.Name(path);
    json.Comma();
    Write(json, report);
    return json.Take();
}

std::string WriteJsonLine(std::string_view path, std::string_view error) {
    JsonWriter json(/*oneLine=*/true);
    json.Raw("{");
    json.Key("path");
    json.Name(path);
    json.Comma();
    json.Text("error", error);
    json.Raw("}\n");
    return json.Take();
}

}  // namespace reader
