#!/usr/bin/env bash
# Tests the log reader as it is called: its page in a browser, and that its JSON is valid.
#
#   page_test.sh FINASET_LOG
#
# It is a program for this computer, or for Windows (*.exe).
set -euo pipefail

reader=$1
tests=$(dirname "$(readlink -f "$0")")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0

complain() {
    echo "$*"
    failures=1
}

# Where this computer's files are.
drive=
[[ $reader != *.exe ]] || drive=Z:

# run_reader NAME ARGUMENT...: saves its output, and its exit status, under the name. On Windows each run
# has a machine of its own.
run_reader() {
    local name=$1 status=0 command=("$reader")
    shift
    [[ ! $drive ]] || command=("$tests/../machine/fresh_machine.sh" "$reader")
    "${command[@]}" "$@" \
        >"$work/$name" 2>"$work/$name.error" || status=$?
    echo "$status" >"$work/$name.status"
}

log=$tests/logs/insecure-machine.log
run_reader page.html --html "$drive$log" &
run_reader report.json --json "$drive$log" &
run_reader refused "$drive$tests/page_test.sh" &
run_reader usage --yaml &
wait

expect_status() {
    [[ $(<"$work/$1.status") == "$2" ]] || complain "$1: exit status $(<"$work/$1.status"), not $2"
}
expect_status page.html 1
expect_status report.json 1
expect_status refused 2
expect_status usage 2
grep -q '^finaset-log: page_test.sh: it is not a log of Finaset' "$work/refused.error" ||
    complain "no reason for the refusal: $(<"$work/refused.error")"
grep -q '^finaset-log: it takes --json or --html' "$work/usage.error" ||
    complain "no word on the call: $(<"$work/usage.error")"

# On a terminal it shows progress, but only after a second: here it waits for a log.
if [[ ! $drive ]]; then
    mkfifo "$work/slow"
    {
        sleep 1.1
        cat "$log"
    } >"$work/slow" &
    for slow in "$work/slow" "$log"; do
        printf -v command '%q ' "$reader" "$slow" "$log"
        SHELL=/bin/bash script --quiet --command "$command >$work/printed" /dev/null \
            </dev/null >"$work/progress"
        grep -q '^2 logs read: ' "$work/printed" || complain "no report: $(<"$work/printed")"
        if [[ $slow == "$log" ]]; then
            [[ ! -s $work/progress ]] || complain "in no time: $(<"$work/progress")"
        else
            grep -q $'\r1 log' "$work/progress" || complain "no progress: $(<"$work/progress")"
        fi
    done
fi

# browse FILE OPTION: how a browser renders a file.
browse() {
    chromium --headless --no-sandbox --disable-gpu --disable-background-networking --no-first-run \
        --disable-component-update --disable-sync --disable-quic \
        --user-data-dir="$(mktemp -d -p "$work")" --virtual-time-budget=5000 \
        "$2" "file://$1" 2>"$work/browser.error" || {
        cat "$work/browser.error"
        complain "the browser has failed"
    }
}

# Both in frames of one page, so that one browser does: the page, with a script at its end that reports
# what the browser found in it, and the JSON as a script reads it.
cat >"$work/frames.html" <<'HTML'
<!DOCTYPE html>
<meta charset="utf-8">
<pre id="page"></pre>
<pre id="json"></pre>
<script>
onmessage = ({data: [name, found]}) => document.getElementById(name).textContent = found;
</script>
<iframe name="page" src="asked.html" width="800" height="600"></iframe>
<iframe name="json" src="json.html"></iframe>
HTML
{
    sed '/<\/body>/,$d' "$work/page.html"
    cat <<'HTML'
<script>
const all = (selector, within = document) => [...within.querySelectorAll(selector)];
const found = [
  "title: " + document.title,
  "result: " + all(".result")[0].textContent,
  ...all("details").map(each => (each.open ? "open " : "folded ") +
    all("summary", each)[0].textContent),
  ...all("tr.attention").map(row => all("td", row)[1].textContent + ": " +
    all("code", row)[0].textContent),
  "not ASCII: " + document.body.textContent.includes("Window Title Tarsel\u00ae Lumetra"),
  "hidden while folded: " + (all("details:not([open]) td")[0].checkVisibility() === false),
  "coloured: " + (getComputedStyle(all("tr.attention td")[0]).color !==
    getComputedStyle(document.body).color),
  "within the window: " + (document.documentElement.scrollWidth <= innerWidth),
  "from elsewhere: " + all("[src], link, [href]").length,
];
parent.postMessage([name, found.join("\n")], "*");
</script>
</body>
</html>
HTML
} >"$work/asked.html"
{
    echo '<!DOCTYPE html><meta charset="utf-8"><script>const report ='
    cat "$work/report.json"
    cat <<'HTML'
;
const items = report.sections.flatMap(section => section.items);
parent.postMessage([name, [report.attention, report.attention_items,
  items.filter(item => item.judgement === "attention").map(item => item.line).join(),
  items[0].text.includes("Tarsel\u00ae Lumetra")].join(" ")], "*");
</script>
HTML
} >"$work/json.html"
browse "$work/frames.html" --dump-dom >"$work/found"

# The expected findings, from the log itself.
verdicts_between() {
    sed -n "/^$1/,/^$2/p" "$log" | grep --text -c $'\t - \t'
}
line_of() {
    grep --text -n "^$1" "$log" | cut -d: -f1
}

expect() {
    grep --fixed-strings --quiet -- "$1" "$work/found" || complain "not in the page: $1"
}
expect 'title: Finaset log'
expect "result: ✗ $(sed -n 's/^  "summary": "\(2 things need attention .*\)",$/\1/p' "$work/report.json")"
expect "folded Stopping Processes.....$(grep --text -c '^Stopping .*\.\.\.\.[a-z]' "$log") items"
expect "folded CopyFiles.....$(verdicts_between CopyFiles SecureFilesDirectories) items"
expect "open SecureFilesDirectories.....$(verdicts_between SecureFilesDirectories Uninstalling) items✗ 1 for attention"
expect 'open Uninstalling Product.....3 items✗ 1 for attention'
link=$(line_of 'Verifying Children Files of Directory ')
reason=$(line_of 'Security Vulnerability Securing Directories')
expect "$link: Verifying Children Files of Directory C:\ProgramData\Tarsel\Nimbus has NO links"
expect "$reason: Security Vulnerability Securing Directories"
expect 'not ASCII: true'
expect 'hidden while folded: true'
expect 'coloured: true'
expect 'within the window: true'
expect 'from elsewhere: 0'
expect "<pre id=\"json\">true 2 $link,$reason true</pre>"

# In print nothing can be unfolded: everything is there, on more than the one page of what is open.
browse "$work/page.html" --print-to-pdf="$work/page.pdf"
pages=$(grep --text --count '/Type /Page$' "$work/page.pdf") || true
((pages > 1)) || complain "printed, the page takes ${pages:-no} pages"

((failures == 0)) || cat "$work/found"
exit "$failures"
