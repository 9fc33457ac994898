#include "log_reader/judge.h"
#include "log_reader/unicode.h"
#include "log_reader/writers.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace reader {

namespace {

constexpr std::string_view Digits = "0123456789abcdef";

// A character in a JSON string: itself, or its escape.
struct EscapedCharacter {
    static constexpr std::uint8_t Longest = 6;

    std::array<char, Longest + 1> text{};  // with the size, eight bytes
    std::uint8_t size = 1;
};

// The characters of a log.
constexpr std::array<EscapedCharacter, 256> Characters = [] {
    std::array<EscapedCharacter, 256> characters{};
    for (std::size_t code = 0; code < characters.size(); ++code) {
        const char character = static_cast<char>(code);
        if (character == '"' || character == '\\') {
            characters[code] = {{'\\', character}, 2};
        } else if (character >= ' ' && character < '\x7F') {
            characters[code] = {{character}, 1};
        } else {
            characters[code] = {
                {'\\', 'u', '0', '0', Digits[code / Digits.size()], Digits[code % Digits.size()]},
                EscapedCharacter::Longest};
        }
    }
    return characters;
}();

// In ASCII. It writes straight into memory, since appending single characters takes most of the
// time.
class JsonWriter {
public:
    // On one line, or one line per item.
    explicit JsonWriter(bool oneLine) : oneLine_(oneLine) {}

    // The log's bytes are the first 256 Unicode characters.
    void Text(std::string_view text) {
        char* to = Open(text.size());
        for (const char character : text) {
            to = Put(to, static_cast<unsigned char>(character));
        }
        Close(to);
    }

    // A name in UTF-8.
    void Name(std::string_view name) {
        constexpr char32_t FirstOfPairs = 0x10000;
        constexpr char32_t FirstHalves = 0xD800;
        constexpr char32_t SecondHalves = 0xDC00;
        constexpr unsigned BitsOfHalf = 10;
        constexpr char32_t MaskOfHalf = 0x3FF;
        char* to = Open(name.size());
        while (const std::optional<char32_t> character = TakeUtf8(name)) {
            if (*character < Characters.size()) {
                to = Put(to, *character);
            } else if (*character < FirstOfPairs) {
                to = PutUnit(to, *character);
            } else {
                to = PutUnit(to, FirstHalves + ((*character - FirstOfPairs) >> BitsOfHalf));
                to = PutUnit(to, SecondHalves + (*character & MaskOfHalf));
            }
        }
        Close(to);
    }

    void Number(std::size_t number) {
        constexpr std::size_t MostDigits = std::numeric_limits<std::size_t>::digits10 + 1;
        char* const to = Room(MostDigits);
        End(std::to_chars(to, to + MostDigits, number).ptr);
    }

    template <typename Elements, typename Write>
    void Array(const Elements& elements, const Write& write) {
        Raw("[");
        bool first = true;
        for (const auto& element : elements) {
            if (!first) {
                Raw(", ");
            }
            write(element);
            first = false;
        }
        Raw("]");
    }

    template <typename Strings>
    void Texts(const Strings& texts) {
        Array(texts, [this](std::string_view text) { Text(text); });
    }

    template <std::size_t Size>
    void Raw(const char (&text)[Size]) {
        char* const to = Room(Size);
        End(std::copy_n(text, Size - 1, to));
    }

    // A line end, and the start of the next line.
    template <std::size_t Size>
    void Break(const char (&indent)[Size]) {
        if (!oneLine_) {
            Raw("\n");
            Raw(indent);
        }
    }

    // Between the members of the report.
    void Comma() {
        if (oneLine_) {
            Raw(", ");
        } else {
            Raw(",\n  ");
        }
    }

    std::string Take() {
        json_.resize(size_);
        return std::move(json_);
    }

private:
    // Room for so many more characters; End says up to where it is used.
    char* Room(std::size_t characters) {
        if (json_.size() - size_ < characters) {
            json_.resize(2 * json_.size() + characters);
        }
        return &json_[size_];
    }

    void End(const char* to) { size_ = static_cast<std::size_t>(to - json_.data()); }

    // Opens a string of at most so many characters.
    char* Open(std::size_t characters) {
        char* const to = Room(EscapedCharacter::Longest * characters + sizeof(EscapedCharacter));
        *to = '"';
        return to + 1;
    }

    void Close(char* to) {
        *to = '"';
        End(to + 1);
    }

    // Copies all of it, which is one instruction, and counts its size.
    static char* Put(char* to, char32_t code) {
        const EscapedCharacter& escaped = Characters[code];
        std::memcpy(to, &escaped, sizeof escaped);
        return to + escaped.size;
    }

    static char* PutUnit(char* to, char32_t unit) {
        *to++ = '\\';
        *to++ = 'u';
        for (const unsigned shift : {12U, 8U, 4U, 0U}) {
            *to++ = Digits[unit >> shift & (Digits.size() - 1)];
        }
        return to;
    }

    static constexpr std::size_t Usual = 0x4000;

    bool oneLine_;
    std::string json_ = std::string(Usual, '\0');  // of which so many characters are used:
    std::size_t size_ = 0;
};

void Write(JsonWriter& json, const Item& item) {
    json.Break("    ");
    json.Raw(R"({"line": )");
    json.Number(item.line);
    json.Raw(R"(, "judgement": )");
    json.Text(NameOf(item.judgement));
    json.Raw(R"(, "verdict": )");
    json.Text(item.verdict);
    json.Raw(R"(, "reason": )");
    json.Text(item.reason);
    json.Raw(R"(, "names": )");
    json.Texts(item.names);
    json.Raw(R"(, "text": )");
    json.Text(item.text);
    json.Raw("}");
}

void Write(JsonWriter& json, const Section& section) {
    json.Break("   ");
    json.Raw(R"({"line": )");
    json.Number(section.line);
    json.Raw(R"(, "title": )");
    json.Text(section.title);
    json.Raw(R"(, "items": )");
    json.Array(section.items, [&](const Item& item) { Write(json, item); });
    json.Raw("}");
}

void Write(JsonWriter& json, const Report& report) {
    json.Raw(R"("attention": )");
    if (NeedsAttention(report)) {
        json.Raw("true");
    } else {
        json.Raw("false");
    }
    json.Comma();
    json.Raw(R"("summary": )");
    json.Text(Summary(report));
    json.Comma();
    json.Raw(R"("ok": )");
    json.Number(Count(report, Judgement::Fine));
    json.Comma();
    json.Raw(R"("expected": )");
    json.Number(Count(report, Judgement::Expected));
    json.Comma();
    json.Raw(R"("attention_items": )");
    json.Number(Count(report, Judgement::Attention));
    json.Comma();
    json.Raw(R"("unknown": )");
    json.Number(Count(report, Judgement::Unknown));
    json.Comma();
    json.Raw(R"("findings": )");
    json.Texts(report.findings);
    json.Comma();
    json.Raw(R"("notes": )");
    json.Texts(report.notes);
    json.Comma();
    json.Raw(R"("sections": )");
    json.Array(report.sections, [&](const Section& section) { Write(json, section); });
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
    json.Raw(R"({"path": )");
    json.Name(path);
    json.Comma();
    Write(json, report);
    return json.Take();
}

std::string WriteJsonLine(std::string_view path, std::string_view error) {
    JsonWriter json(/*oneLine=*/true);
    json.Raw(R"({"path": )");
    json.Name(path);
    json.Comma();
    json.Raw(R"("error": )");
    json.Text(error);
    json.Raw("}\n");
    return json.Take();
}

}  // namespace reader
