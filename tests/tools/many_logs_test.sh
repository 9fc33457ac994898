#!/usr/bin/env bash
# Tests the log reader on the two thousand logs of a rollout and other files among them: its counts in
# text, in JSON and on its page in a browser.
#
#   many_logs_test.sh MAKE_LOGS FINASET_LOG...
#
# The readers are programs for this computer, or for Windows (*.exe).
set -euo pipefail

maker=$1
shift
tests=$(dirname "$(readlink -f "$0")")
work=$(mktemp -d)
trap 'chmod -R u+rwx "$work"; rm -rf "$work"' EXIT
failures=0

complain() {
    echo "$*"
    failures=1
}

"$tests/../machine/fresh_machine.sh" "$maker" "Z:$work" 2000
logs=$work/logs

# Among the logs: files that are not logs, links to logs, and files that cannot be read.
insecure=$tests/logs/insecure-machine.log
echo "FIRST RUN - START" >"$logs/win10-22H2/notes.txt"
ln -s .. "$logs/win10-22H2/loop"
mkdir "$logs/empty" "$logs/secret" "$logs/secret.log"
cp "$insecure" "$logs/secret/PC-1.log"
cp "$insecure" "$logs/secret.log/PC-2.LOG"
cp "$insecure" "$logs/PC-3.log"
chmod 0 "$logs/secret" "$logs/PC-3.log"

# expect READ UNREADABLE: so many logs more than were made, all of insecure machines.
expect() {
    awk -F '\t' -v OFS='\t' -v read="$1" -v unreadable="$2" '
        $2 == "not readable" {$1 += unreadable}
        $2 == "read" || $2 == "needing attention" || $3 ~ /^One of its entries|not secure/ {
            $1 += read
        }
        {print}' "$work/expected" >"$work/all"
}
count() {
    awk -F '\t' -v name="$1" '$2 == name {print $1}' "$work/all"
}
findings() {
    awk -F '\t' 'NF == 3' "$work/all" | sort
}

# Root's rights must not help it to read.
as_user=()
((EUID != 0)) || as_user=(setpriv "--bounding-set=-dac_override,-dac_read_search")

# read_logs NAME ARGUMENT...: saves its output, and its exit status, under the name. On Windows all
# calls wait for run_machine, and run on one machine.
read_logs() {
    local name=$1 status=0
    shift
    names+=("$name")
    if [[ $drive ]]; then
        local file=$drive${work//\//\\}\\$name
        printf '%s\r\n' "\"$drive${reader//\//\\}\"$(printf ' "%s"' "$@") >\"$file\" 2>\"$file.error\"" \
            ">\"$file.status\" echo %errorlevel%" >>"$work/calls.cmd"
        return
    fi
    (
        ulimit -v 65536 # kilobytes of address space
        exec "${as_user[@]}" "$reader" "$@"
    ) >"$work/$name" 2>"$work/$name.error" || status=$?
    echo "$status" >"$work/$name.status"
}

run_machine() {
    "${as_user[@]}" "$tests/../machine/fresh_machine.sh" "$work/calls.cmd" >"$work/machine" 2>&1 || true
    cat "$work/machine"
}

expect_status() {
    [[ $(<"$work/$1.status") == "$2" ]] || {
        complain "$1: exit status $(<"$work/$1.status"), not $2:"
        cat "$work/$1.error"
    }
}

# same NAME: compares the findings with the expected ones.
same() {
    diff "$work/$1.expected" "$work/$1.found" || complain "$1 differs"
}

check_calls() {
    local name
    for name in text page.html lines.json; do
        expect_status "$name" 1
        [[ ! -s $work/$name.error ]] || complain "$name: $(<"$work/$name.error")"
    done
    expect_status two.json 0
    expect_status some.json 1
    expect_status empty 2
    expect_status none.json 2
    [[ $(<"$work/empty.error") == "finaset-log: there is no file *.log" ]] ||
        complain "an empty directory: $(<"$work/empty.error")"
    [[ $(<"$work/none.json.error") == *"win10-22H2/notes: it cannot be read" ]] ||
        complain "no log that can be read: $(<"$work/none.json.error")"
}

check_text() {
    head -n 1 "$work/text" >"$work/sum.found"
    echo "$(count read) logs read: $(count 'in order') in order," \
        "$(count 'needing attention') needing attention." \
        "$(count 'not readable') not readable." >"$work/sum.expected"
    same sum

    # Each finding on one line: its item, its reason and its names.
    sed '/^Not readable/,$d' "$work/text" | awk '
        NR > 2 {gsub(/ +/, " "); if ($0 ~ /^ [0-9]+ [0-9.]+ % /) printf "\n"; printf "%s", $0}' |
        grep . >"$work/found"
    local logs_with what reason line
    while IFS=$'\t' read -r logs_with what reason; do
        grep -F " % $what${reason:+ $reason} " "$work/found" |
            grep -qE "^ $logs_with [0-9.]+ % " ||
            complain "text: not on $logs_with logs: $what: $reason"
    done < <(findings)
    [[ $(wc -l <"$work/found") == $(findings | wc -l) ]] || complain "text: more findings"

    sed '1,/^Not readable/d' "$work/text" | awk '
        {printf "%s", /^  LOGS/ ? "\n" : " "; sub(/^ +/, ""); printf "%s", $0}' |
        grep . >"$work/unread"
    [[ $(wc -l <"$work/unread") == $(count 'not readable') ]] ||
        complain "text: other logs are not readable"
    for line in 'LOGS/secret: not all that is in this directory can be listed' \
        'LOGS/PC-3.log: it cannot be read' 'PC-10003.log: it is not a log of Finaset: it has none' \
        'PC-10002.log: its run is too long to be read with others: read it alone'; do
        grep -qF "$line" "$work/unread" || complain "text: no line $line"
    done
    LC_ALL=C sort --check "$work/unread" || complain "text: not in the order of the names"
    ! LC_ALL=C.UTF-8 grep -E '.{101}' "$work/text" || complain "text: wider than 100 columns"
}

check_json() {
    jq -rs '[
        [map(select(.sections)), "read"],
        [map(select(.attention == false)), "in order"],
        [map(select(.attention)), "needing attention"],
        [map(select(.error)), "not readable"]
      ][] | "\(.[0] | length)\t\(.[1])"' "$work/lines.json" | sort >"$work/json-sum.found"
    awk -F '\t' 'NF == 2' "$work/all" | sort >"$work/json-sum.expected"
    same json-sum

    # A finding is identified by its first word and its reason.
    jq -r '[.findings[]?, (.sections[]?.items[] | select(.judgement == "attention") |
        "\(.text | ltrimstr("   ") | split(" ")[0]) \(.reason)")] | unique[]' "$work/lines.json" |
        sort | uniq -c | sed 's/^ *//' | sort >"$work/json-findings.found"
    findings | awk -F '\t' '{print $1 " " ($3 == "" ? $2 : substr($2, 1, index($2, " ")) $3)}' |
        sort >"$work/json-findings.expected"
    same json-findings

    jq -r '.path | select(contains("\\") | not)' "$work/lines.json" | LC_ALL=C sort --check ||
        complain "JSON: not in the order of the names"
    [[ $(jq -r '.path | split("/")[-1]' "$work/two.json" | xargs) == \
        'first-installation.log reinstallation.log' ]] ||
        complain "JSON: not the two that were asked for"
}

# A script at the end of the page reports what the browser found in it to the page whose frame it is in.
ask_page() {
    sed '/<\/body>/,$d' "$work/page.html"
    cat <<'HTML'
<script>
const all = (selector, within = document) => [...within.querySelectorAll(selector)];
const text = element => element ? element.textContent.replace(/ +/g, " ") : "";
const bars = all(".bar div").map(bar => bar.getBoundingClientRect().width /
  bar.parentElement.clientWidth);
const found = [
  "sum: " + all(".sum b").map(text).join(" "),
  ...all(".finding").map(each => ["finding: " + all(".logs li", each).length,
    text(each.querySelector("code")), text(each.querySelector("p:nth-of-type(2):not(.reason)"))]
    .join("\t")),
  "not readable: " + all(".unread tbody tr").length,
  "hidden while folded: " + !all(".logs li")[0].checkVisibility(),
  "bars: " + bars.every((bar, index) => bar > 0 && bar < 1 && !(bar > bars[index - 1])),
  "within the window: " + (document.documentElement.scrollWidth <= innerWidth),
  "from elsewhere: " + all("[src], link, [href]").length,
  "background: " + getComputedStyle(document.body).backgroundColor,
];
parent.postMessage([name, found.join("\n")], "*");
</script>
</body>
</html>
HTML
}

# What the page shows in three windows, one as narrow as the browser's can be. They are the frames of
# another page: three browsers would take three times as long.
check_pages() {
    cat >"$work/windows.html" <<'HTML'
<!DOCTYPE html>
<pre id="wide"></pre>
<pre id="narrow"></pre>
<pre id="dark"></pre>
<script>
onmessage = ({data: [name, found]}) => document.getElementById(name).textContent = found;
</script>
<iframe name="wide" src="asked.html" width="1280" height="900"></iframe>
<iframe name="narrow" src="asked.html" width="500" height="800"></iframe>
<iframe name="dark" src="asked.html" width="1280" height="900" style="color-scheme: dark"></iframe>
HTML
    ask_page >"$work/asked.html"
    chromium --headless --no-sandbox --disable-gpu --disable-background-networking --no-first-run \
        --disable-component-update --disable-sync --disable-quic \
        --user-data-dir="$(mktemp -d -p "$work")" --virtual-time-budget=5000 \
        --dump-dom "file://$work/windows.html" >"$work/browsed" 2>"$work/browser.error" || {
        cat "$work/browser.error"
        complain "the browser has failed"
    }
    check_page wide 'rgb(255, 255, 255)'
    check_page narrow 'rgb(255, 255, 255)'
    check_page dark 'rgb(20, 23, 26)'
}

# check_page WINDOW BACKGROUND: what it shows in that one.
check_page() {
    sed -n "/<pre id=\"$1\">/,/<\/pre>/p" "$work/browsed" |
        sed 's/.*<pre[^>]*>//; s|</pre>.*||; s/&gt;/>/g; s/&lt;/</g; s/&amp;/\&/g' |
        sort >"$work/$1.found"
    {
        echo "sum: $(count read) $(count 'in order') $(count 'needing attention')" \
            "$(count 'not readable')"
        findings | sed 's/^/finding: /'
        echo "not readable: $(count 'not readable')"
        echo "hidden while folded: true"
        echo "bars: true"
        echo "within the window: true"
        echo "from elsewhere: 0"
        echo "background: $2"
    } | sort >"$work/$1.expected"
    same "$1"
}

for reader in "$@"; do
    echo "many_logs_test.sh: $reader"
    # Where it has this computer's files.
    drive=
    [[ $reader != *.exe ]] || drive=Z:
    expect 1 2
    if [[ ! $drive ]]; then
        # Wine treats the first as its target, and has no equivalent of the others.
        ln -s ../win10-22H2/PC-10000.log "$logs/win11-23H2/link.log"
        mkfifo "$logs/pipe.log"
        cp "$insecure" "$logs/"$'\xff\x1b.log'
        expect 2 3
    fi
    names=()
    echo '@echo off' >"$work/calls.cmd"
    read_logs text "$drive$logs"
    read_logs page.html --html "$drive$logs"
    read_logs lines.json --json "$drive$logs"
    read_logs empty "$drive$logs/empty"
    read_logs none.json --json "$drive$logs/empty" "$drive$logs/win10-22H2/notes"
    read_logs two.json --json "$drive$tests/logs/first-installation.log" \
        "$drive$tests/logs/reinstallation.log"
    read_logs some.json --json "$drive$tests/logs/first-installation.log" "$drive$logs/missing"
    [[ ! $drive ]] || run_machine
    # In this computer's form of lines and paths.
    for name in "${names[@]}"; do
        sed -i "s/\r\$//; s|$drive$logs|LOGS|g" "$work/$name" "$work/$name".{error,status}
    done
    check_calls
    check_text
    check_json
    check_pages
done

exit "$failures"
