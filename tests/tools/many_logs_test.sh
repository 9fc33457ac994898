#!/usr/bin/env bash
# Tests the reader of logs on the two thousand of a rollout, with whatever else lies among them: what
# it counts in text, in JSON and on its page in a browser.
#
#   many_logs_test.sh FINASET_LOG MAKE_LOGS
#
# Each is a program of this computer, or one of Windows (*.exe).
set -euo pipefail

reader=$1
maker=$2
tests=$(dirname "$(readlink -f "$0")")
work=$(mktemp -d)
trap 'chmod -R u+rwx "$work"; rm -rf "$work"' EXIT
failures=0

complain() {
    echo "$*"
    failures=1
}

# run PROGRAM ARGUMENT...: a program of Windows on a machine of its own.
run() {
    if [[ $1 == *.exe ]]; then
        "$tests/../machine/fresh_machine.sh" "$@"
    else
        "$@"
    fi
}

# The paths of this computer's root, as the program has them.
drive=
[[ $reader != *.exe ]] || drive=Z:
maker_drive=
[[ $maker != *.exe ]] || maker_drive=Z:

run "$maker" "$maker_drive$work" "$maker_drive$(readlink -f "$tests/../..")"
logs=$work/logs

# Among the logs: what is no log, links that lead to logs again, and what may not be read.
echo "FIRST RUN - START" >"$logs/win10-22H2/notes.txt"
ln -s .. "$logs/win10-22H2/loop"
ln -s ../win10-22H2/PC-10000.log "$logs/win11-23H2/link.log"
mkdir "$logs/empty" "$logs/secret" "$logs/secret.log"
cp "$tests/logs/insecure-machine.log" "$logs/secret/PC-1.log"
cp "$tests/logs/insecure-machine.log" "$logs/secret.log/PC-2.LOG"
cp "$tests/logs/insecure-machine.log" "$logs/PC-3.log"
chmod 0 "$logs/secret" "$logs/PC-3.log"
more="secret PC-3.log"
if [[ ! $drive ]]; then
    # Of these Windows knows nothing.
    mkfifo "$logs/pipe.log"
    cp "$tests/logs/insecure-machine.log" "$logs/"$'\xff\x1b.log'
    more+=" pipe.log"
fi
awk -F '\t' -v OFS='\t' -v unreadable="$(wc -w <<<"$more")" -v insecure=$((${#drive} > 0 ? 1 : 2)) '
    $2 == "not readable" {$1 += unreadable}
    $2 == "read" || $2 == "needing attention" || $3 ~ /^One of its entries|not secure/ {
        $1 += insecure
    }
    {print}' "$work/expected" >"$work/all"
expected=$work/all
count() {
    awk -F '\t' -v name="$1" '$2 == name {print $1}' "$expected"
}
findings() {
    sed 1,4d "$expected" | sort
}

# What root may is not to help it to read.
as_user=()
((EUID != 0)) || as_user=(setpriv "--bounding-set=-dac_override,-dac_read_search")

# read_logs NAME ARGUMENT...: leaves what it printed, and its exit status, under the name.
read_logs() {
    local name=$1 status=0 command=("$reader")
    shift
    [[ ! $drive ]] || command=("$tests/../machine/fresh_machine.sh" "$reader")
    "${as_user[@]}" "${command[@]}" "$@" >"$work/$name" 2>"$work/$name.error" || status=$?
    # The machine says what it misses.
    sed -i '/^fresh_machine.sh: /d' "$work/$name.error"
    # As this computer has lines and paths.
    sed -i "s/\r\$//; s|$drive$logs|LOGS|g" "$work/$name" "$work/$name.error"
    echo "$status" >"$work/$name.status"
}
read_logs text "$drive$logs" &
read_logs page.html --html "$drive$logs" &
read_logs lines.json --json "$drive$logs" &
read_logs none.json --json "$drive$logs/empty" "$drive$logs/win10-22H2/notes" &
wait
read_logs empty "$drive$logs/empty" &
read_logs two.json --json "$drive$tests/logs/first-installation.log" \
    "$drive$tests/logs/reinstallation.log" &
wait

expect_status() {
    [[ $(<"$work/$1.status") == "$2" ]] || {
        complain "$1: exit status $(<"$work/$1.status"), not $2:"
        cat "$work/$1.error"
    }
}
for name in text page.html lines.json; do
    expect_status "$name" 1
    [[ ! -s $work/$name.error ]] || complain "$name: $(<"$work/$name.error")"
done
expect_status two.json 0
expect_status empty 2
expect_status none.json 2
[[ $(<"$work/empty.error") == "finaset-log: there is no file *.log" ]] ||
    complain "an empty directory: $(<"$work/empty.error")"
[[ $(<"$work/none.json.error") == *"win10-22H2/notes: it cannot be read" ]] ||
    complain "no log that can be read: $(<"$work/none.json.error")"

# same NAME: whether what has been found is what is expected.
same() {
    diff "$work/$1.expected" "$work/$1.found" || complain "$1 differs"
}

# ---- In text

head -n 1 "$work/text" >"$work/sum.found"
echo "$(count read) logs read: $(count 'in order') in order, $(count 'needing attention') needing" \
    "attention. $(count 'not readable') not readable." >"$work/sum.expected"
same sum

# Each finding on one line, as its item, its reason and its names follow on one another.
sed -n '/^Not readable/q; p' "$work/text" |
    awk 'NR > 2 {gsub(/ +/, " "); if ($0 ~ /^ [0-9]+ [0-9.]+ % /) printf "\n"; printf "%s", $0}' |
    grep . >"$work/blocks"
while IFS=$'\t' read -r logs_with what reason; do
    grep -F " % $what${reason:+ $reason} " "$work/blocks" | grep -qE "^ $logs_with [0-9.]+ % " ||
        complain "text: not on $logs_with logs: $what: $reason"
done < <(findings)
[[ $(wc -l <"$work/blocks") == $(findings | wc -l) ]] || complain "text: more findings"
sed -n '/^Not readable/,$p' "$work/text" |
    awk 'NR > 1 {if ($0 ~ /^  LOGS/) printf "\n"; else printf " "; sub(/^ +/, ""); printf "%s", $0}' |
    grep . >"$work/unread"
[[ $(wc -l <"$work/unread") == $(count 'not readable') ]] ||
    complain "text: other logs are not readable"
for line in 'LOGS/secret: not all that is in this directory can be listed' \
    'LOGS/PC-3.log: it cannot be read' 'PC-10003.log: it is not a log of Finaset: it has none' \
    'PC-10002.log: its run is too long to be read with others: read it alone'; do
    grep -qF "$line" "$work/unread" || complain "text: no line $line"
done
LC_ALL=C.UTF-8 awk 'length > 100' "$work/text" | grep . && complain "text: wider than 100 columns"
LC_ALL=C sort -c "$work/unread" ||
    complain "text: not in the order of their names"

# ---- As JSON Lines

jq -r '.path' "$work/lines.json" | grep -v '[\\]' | LC_ALL=C sort -c || complain "JSON: not in the order of the paths"
jq -rs '[
    [map(select(.sections)), "read"],
    [map(select(.attention == false)), "in order"],
    [map(select(.attention)), "needing attention"],
    [map(select(.error)), "not readable"]
  ][] | "\(.[0] | length)\t\(.[1])"' "$work/lines.json" >"$work/json-sum.found"
head -n 4 "$expected" >"$work/json-sum.expected"
same json-sum
# An item is told by its reason and its beginning.
jq -r '[.findings[]?, (.sections[]?.items[] | select(.judgement == "attention") |
    "\(.text | split(" ")[0] | ltrimstr(" ")) \(.reason)")] | unique[]' "$work/lines.json" |
    sed 's/^ *//' | sort | uniq -c | sed 's/^ *//' | sort >"$work/json-findings.found"
findings | awk -F '\t' '{print $1 " " ($3 == "" ? $2 : substr($2, 1, index($2, " ")) $3)}' |
    sed 's/^\([0-9]*\) Creating /\1 /' | sort >"$work/json-findings.expected"
same json-findings
jq -s 'map(.path | split("/")[-1])' "$work/two.json" |
    jq -e '. == ["first-installation.log", "reinstallation.log"]' >/dev/null ||
    complain "JSON: not the two that were asked for"

# ---- As a page

# browse NAME OPTION...: what a browser makes of a file.
browse() {
    local name=$1
    shift
    chromium --headless --no-sandbox --disable-gpu --disable-background-networking --no-first-run \
        --disable-component-update --disable-sync --disable-quic \
        --user-data-dir="$(mktemp -d -p "$work")" --virtual-time-budget=5000 \
        "$@" "file://$work/$name" 2>"$work/browser.error" || {
        cat "$work/browser.error"
        complain "the browser has failed"
    }
}

# A script at the end says what the browser has found in the page.
{
    sed '/<\/body>/,$d' "$work/page.html"
    cat <<'HTML'
<pre id="found"></pre>
<script>
const all = (selector, within = document) => [...within.querySelectorAll(selector)];
const text = element => element ? element.textContent.replace(/ +/g, " ") : "";
const most = all(".bar div").map(bar => bar.getBoundingClientRect().width /
  bar.parentElement.clientWidth);
const found = [
  "sum: " + all(".sum b").map(text).join(" "),
  ...all(".finding").map(each => ["finding: " + all(".logs li", each).length,
    text(each.querySelector("code")), text(each.querySelector("p:nth-of-type(2):not(.reason)"))]
    .join("\t")),
  "not readable: " + all(".unread tbody tr").length,
  "hidden while folded: " + !all(".logs li")[0].checkVisibility(),
  "bars: " + most.every((bar, index) => bar > 0 && bar < 1 && !(bar > most[index - 1])),
  "within the window: " + (document.documentElement.scrollWidth <= innerWidth),
  "from elsewhere: " + all("[src], link, [href], script").filter(each => each.src).length,
  "dark: " + matchMedia("(prefers-color-scheme: dark)").matches + " " +
    getComputedStyle(document.body).backgroundColor,
];
document.getElementById("found").textContent = found.join("\n");
</script>
</body>
</html>
HTML
} >"$work/asked.html"
for window in 1280,900 400,800; do
    browse asked.html --window-size="$window" --dump-dom |
        sed -n '/<pre id="found">/,/<\/pre>/p' | sed 's/.*<pre[^>]*>//; s|</pre>.*||' |
        sed 's/&gt;/>/g; s/&lt;/</g; s/&amp;/\&/g' >"$work/page.found"
    {
        echo "sum: $(count read) $(count 'in order') $(count 'needing attention')" \
            "$(count 'not readable')"
        sed 1,4d "$expected" | sort -t $'\t' -k1,1nr -k2 | sed 's/^/finding: /'
        echo "not readable: $(count 'not readable')"
        echo "hidden while folded: true"
        echo "bars: true"
        echo "within the window: true"
        echo "from elsewhere: 0"
        echo "dark: false rgb(255, 255, 255)"
    } >"$work/page.expected"
    sort -o "$work/page.found" "$work/page.found"
    sort -o "$work/page.expected" "$work/page.expected"
    same page
done

exit "$failures"
