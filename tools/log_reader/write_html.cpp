#include "log_reader/judge.h"
#include "log_reader/unicode.h"
#include "log_reader/writers.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace reader {

namespace {

constexpr char32_t FirstBeyondAscii = 0x80;

// Between the page's title and its style.
constexpr std::string_view Head = R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>)";
constexpr std::string_view Title = "Finaset log";
constexpr std::string_view TitleOfMany = "Finaset logs";
constexpr std::string_view Style = R"(</title>
<style>
:root { color-scheme: light dark; --text: #1b1f24; --back: #fff; --soft: #57606a; --line: #d0d7de;
  --attention: #b3141d; --attention-back: #fff0f0; --expected: #7a5200; --ok: #1a6b33; }
@media (prefers-color-scheme: dark) { :root { --text: #e6e9ec; --back: #14171a; --soft: #9aa4ae;
  --line: #3a4149; --attention: #ff8f8a; --attention-back: #3b1719; --expected: #e2b557;
  --ok: #6fcf8c; } }
body { margin: 2rem auto; max-width: 75rem; padding: 0 1rem; color: var(--text);
  background: var(--back); font: 1rem/1.45 "Segoe UI", system-ui, sans-serif; }
h1 { font-size: 1.4rem; margin: 0 0 1rem; }
.result { padding: .7rem 1rem; border-left: .4rem solid var(--ok); font-weight: 600; }
.result.attention { border-color: var(--attention); background: var(--attention-back); }
details { border: 1px solid var(--line); border-radius: .3rem; margin: .6rem 0; }
summary { padding: .5rem .8rem; cursor: pointer; font-weight: 600; }
summary small { color: var(--soft); font-weight: 400; margin-left: .6rem; }
table { border-collapse: collapse; width: 100%; }
td, th { padding: .3rem .8rem; border-top: 1px solid var(--line); text-align: left;
  vertical-align: top; }
th { color: var(--soft); font-weight: 400; font-size: .85rem; }
th:first-child { width: 7rem; }
th:nth-child(2) { width: 3rem; text-align: right; }
td:nth-child(2) { color: var(--soft); text-align: right; }
td:first-child { white-space: nowrap; font-weight: 600; }
code { font: .9rem/1.4 Consolas, monospace; white-space: pre-wrap; overflow-wrap: anywhere; }
.reason { color: var(--soft); }
.ok td:first-child, .ok.count { color: var(--ok); }
.expected td:first-child { color: var(--expected); }
.attention td:first-child, small.attention, li { color: var(--attention); }
tr.attention { background: var(--attention-back); }
.attention .reason { color: inherit; }
small.attention { font-weight: 600; }
)";
constexpr std::string_view StyleOfOne =
    R"(@media print { details::details-content { content-visibility: visible; } tr { break-inside: avoid; }
  body { margin: 0; } }
)";
// In print, only unfolded logs appear; all would fill a book.
constexpr std::string_view StyleOfMany =
    R"(.sum { display: flex; flex-wrap: wrap; gap: .6rem; padding: 0; list-style: none; }
.sum li { flex: 1 1 9rem; padding: .6rem 1rem; border: 1px solid var(--line);
  border-radius: .3rem; color: var(--soft); }
.sum b { display: block; font-size: 1.6rem; color: var(--text); }
.sum .attention b { color: var(--attention); }
.sum .ok b { color: var(--ok); }
h2 { font-size: 1.1rem; margin: 1.6rem 0 .6rem; }
.finding { border-top: 1px solid var(--line); padding: .8rem 0; break-inside: avoid-page; }
.finding p { margin: .2rem 0; }
.finding code { font-weight: 600; }
.measure { display: flex; align-items: center; gap: .8rem; }
.measure span { flex: none; width: 11rem; }
.bar { flex: 1; height: .9rem; border: 1px solid var(--line); border-radius: .2rem;
  print-color-adjust: exact; -webkit-print-color-adjust: exact; }
.bar div { height: 100%; min-width: 1px; background: var(--attention); }
.finding details { border: 0; margin: .2rem 0 0; }
.finding summary { padding: 0; font-weight: 400; overflow-wrap: anywhere; }
.logs { columns: 14rem; margin: .4rem 0 0; padding-left: 1.2rem; overflow-wrap: anywhere; }
.logs li { color: inherit; }
.unread td { white-space: normal; overflow-wrap: anywhere; }
@media print { body { margin: 0; } }
@media (max-width: 40rem) { .measure { flex-wrap: wrap; gap: .2rem; } .bar { flex-basis: 100%; } }
)";
constexpr std::string_view Body = R"(</style>
</head>
<body>
<main>
<h1>)";
constexpr std::string_view End = "</main>\n</body>\n</html>\n";

// In ASCII. Invisible characters are made visible.
std::string Escaped(std::string_view text) {
    std::string escaped;
    for (const char character : text) {
        const bool space = character == '\n' || character == '\t';
        if (IsControl(character) && !space) {
            escaped += "&#xFFFD;";
        } else if (!IsAscii(character) ||
                   std::string_view("&<>\"'").find(character) != std::string::npos) {
            escaped += "&#" + std::to_string(static_cast<unsigned char>(character)) + ';';
        } else {
            escaped += character;
        }
    }
    return escaped;
}

// Colour is not the only mark.
std::string_view Sign(Judgement judgement) {
    switch (judgement) {
        case Judgement::Fine:
            return "&#x2713; ok";
        case Judgement::Expected:
            return "&#x2013; expected";
        case Judgement::Attention:
            return "&#x2717; attention";
        default:
            return "? unknown";
    }
}

std::string Row(const Item& item) {
    std::string row = "<tr class=\"" + std::string(NameOf(item.judgement)) + "\"><td>" +
                      std::string(Sign(item.judgement)) + "</td><td>" + std::to_string(item.line) +
                      "</td><td><code>" + Escaped(item.text) + "</code>";
    if (!item.reason.empty()) {
        row += "<div class=\"reason\">" + Escaped(item.reason) + "</div>";
    }
    return row + "</td></tr>\n";
}

std::string Details(const Section& section) {
    std::size_t matters = 0;
    std::string rows;
    for (const Item& item : section.items) {
        matters += item.judgement == Judgement::Attention ? 1 : 0;
        rows += Row(item);
    }
    std::string details = matters > 0 ? "<details open>\n" : "<details>\n";
    details +=
        "<summary>" + (section.title.empty() ? "Before the first section" : Escaped(section.title));
    if (!rows.empty()) {
        details += "<small>" + std::to_string(section.items.size()) +
                   (section.items.size() == 1 ? " item" : " items") + "</small>";
    }
    if (matters > 0) {
        details += "<small class=\"attention\">&#x2717; " + std::to_string(matters) +
                   " for attention</small>";
    }
    details += "</summary>\n";
    if (!rows.empty()) {
        details +=
            "<table>\n<thead><tr><th scope=\"col\">Verdict</th><th scope=\"col\">Line</th>"
            "<th scope=\"col\">What the log says</th></tr></thead>\n<tbody>\n" +
            rows + "</tbody>\n</table>\n";
    }
    return details + "</details>\n";
}

std::string Opening(std::string_view title, std::string_view style) {
    std::string opening(Head);
    opening += title;
    opening += Style;
    opening += style;
    opening += Body;
    opening += title;
    return opening + "</h1>\n";
}

// A name in UTF-8, in ASCII.
std::string EscapedName(std::string_view name) {
    std::string escaped;
    while (const std::optional<char32_t> character = TakeUtf8(name)) {
        if (*character < FirstBeyondAscii) {
            escaped += Escaped(std::string(1, static_cast<char>(*character)));
        } else {
            escaped += "&#" + std::to_string(static_cast<unsigned long>(*character)) + ';';
        }
    }
    return escaped;
}

std::string Tile(std::string_view style, std::size_t count, std::string_view what) {
    return "<li class=\"" + std::string(count > 0 ? style : "none") + "\"><b>" +
           std::to_string(count) + "</b> " + std::string(what) + "</li>\n";
}

std::string Sum(const Rollout& rollout) {
    return "<ul class=\"sum\">\n" + Tile("read", rollout.Read(), "logs read") +
           Tile("ok", rollout.InOrder(), "&#x2713; in order") +
           Tile("attention", rollout.NeedAttention(), "&#x2717; needing attention") +
           Tile("unknown", rollout.NotRead().size(), "? not readable") + "</ul>\n";
}

void Write(std::ostream& output, const Finding& finding, const Rollout& rollout,
           const std::vector<std::string>& machines) {
    const std::size_t logs = finding.logs.size();
    const std::string share = Share(logs, rollout);
    output << "<section class=\"finding\">\n<div class=\"measure\"><span>" << logs
           << (logs == 1 ? " log" : " logs") << ", " << share
           << R"(</span><div class="bar"><div style="width: )" << share.substr(0, share.find(' '))
           << R"(%"></div></div></div>)"
           << "\n<p><code>" << Escaped(finding.what) << "</code></p>\n";
    if (!finding.reason.empty()) {
        output << "<p>" << Escaped(finding.reason) << "</p>\n";
    }
    if (!finding.names.empty()) {
        output << "<p class=\"reason\">" << EscapedName(FirstNames(finding)) << "</p>\n";
    }
    output << "<details><summary>" << EscapedName(FirstMachines(finding, machines))
           << "</summary>\n<ul class=\"logs\">\n";
    for (const std::uint32_t log : finding.logs) {
        output << "<li>" << EscapedName(machines[log]) << "</li>\n";
    }
    output << "</ul></details>\n</section>\n";
}

}  // namespace

std::string WriteHtml(const Report& report) {
    std::string html = Opening(Title, StyleOfOne);
    html += NeedsAttention(report) ? "<p class=\"result attention\">&#x2717; "
                                   : "<p class=\"result\">&#x2713; ";
    html += Escaped(Summary(report)) + "</p>\n";
    for (const std::string& note : report.notes) {
        html += "<p>Note: " + Escaped(note) + ".</p>\n";
    }
    if (!report.findings.empty()) {
        html += "<ul>\n";
        for (const std::string& finding : report.findings) {
            html += "<li>" + Escaped(finding) + "</li>\n";
        }
        html += "</ul>\n";
    }
    for (const Section& section : report.sections) {
        html += Details(section);
    }
    return html + std::string(End);
}

void WriteHtml(std::ostream& output, const Rollout& rollout) {
    output << Opening(TitleOfMany, StyleOfMany) << Sum(rollout);
    const std::vector<std::string> machines = rollout.Machines();
    const std::vector<const Finding*> findings = rollout.Findings();
    if (!findings.empty()) {
        output << "<h2>What needs attention</h2>\n";
    }
    for (const Finding* finding : findings) {
        Write(output, *finding, rollout, machines);
    }
    if (!rollout.NotRead().empty()) {
        output << "<h2>Not readable</h2>\n<table class=\"unread\">\n"
                  "<thead><tr><th scope=\"col\">Log</th><th scope=\"col\">Why</th></tr></thead>\n"
                  "<tbody>\n";
        for (const Unreadable& log : rollout.NotRead()) {
            output << "<tr><td>" << EscapedName(log.path) << "</td><td>" << Escaped(log.reason)
                   << "</td></tr>\n";
        }
        output << "</tbody>\n</table>\n";
    }
    output << End;
}

}  // namespace reader
