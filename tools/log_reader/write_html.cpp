#include "log_reader/judge.h"
#include "log_reader/writers.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace reader {

namespace {

constexpr std::string_view Head = R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>Finaset log</title>
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
@media print { details::details-content { content-visibility: visible; } tr { break-inside: avoid; }
  body { margin: 0; } }
</style>
</head>
<body>
<main>
<h1>Finaset log</h1>
)";

// In ASCII. What would show nothing shows that it is there.
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

// Colour is not the only sign.
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

}  // namespace

std::string WriteHtml(const Report& report) {
    std::string html(Head);
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
    return html + "</main>\n</body>\n</html>\n";
}

}  // namespace reader
