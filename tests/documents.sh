#!/usr/bin/env bash
# Runs the command lines that the documents show: those in their shell blocks whole, and of `phonetest …` in the text
# whether there is such a command. `documents.sh BUILD` takes the programs from the folder BUILD. A line must end with 0;
# an endless one must print something that is no complaint, and is ended then.
set -euo pipefail
sources=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "$1" && pwd)

# Not run, with the reason. A line here that no document shows any longer is an error.
declare -A not_run=(
  ["./run"]="builds everything and takes a minute; a command of its own"
  ["./run --arm"]="the same"
  ["./run --line"]="builds, and takes a minute"
  ["phonesim listen | aplay"]="needs a sound card"
  ["phonesim lcd | ffplay -f rawvideo -pixel_format rgb565le -video_size 240x320 -"]="needs a screen"
  ["./test"]="runs this test"
  ["cmake --preset phone && cmake --build --preset phone"]="./test --full builds it"
  ["cmake --preset desk && cmake --build --preset desk"]="built this test"
  ["/root/phonetestd"]="on the phone"
  ["/root/phonetestd -g"]="on the phone"
  ["/root/phonetestd -c 0"]="on the phone"
  ["ctest --test-dir build/desk -j4"]="runs this test"
  ["ctest --test-dir build/desk -R phone/ChannelTest"]="a part of ./test"
  ["build/desk/phone_tests --gtest_filter='ChannelTest.*'"]="a part of ./test"
  ["FAULTS=all ctest --test-dir build/desk -R FaultLoop"]="a part of ./test --full"
  ["EVERY_POWER_CUT=1 ctest --test-dir build/desk -R PowerCut"]="a part of ./test --full"
  ["EXCHANGES=100000 build/asan/phone_tests --gtest_filter='ConversationFuzz*'"]="takes long"
  ["SOAK=1000000 build/desk/phone_tests --gtest_filter='Soak*'"]="takes half an hour"
  ["tools/campaigns"]="takes ten minutes"
  ["tools/coverage"]="builds another server and takes long"
  ["tools/fuzz 600"]="takes long"
  ["tools/fuzz --keep plans"]="takes long"
)
endless='^phonesim( --no-server| -- -g|)$|--follow$|serve | panel( |$)'

scratch=$(mktemp -d)
export PHONESIM_GROUP=documents-$$ XDG_DATA_HOME=$scratch/data
stop_phones() { # every phone of this test
  local name
  phonesim status | sed -n 's/^\([^:]*\): running.*/\1/p' | while read -r name; do phonesim --name "$name" stop; done
}
trap 'stop_phones >/dev/null 2>&1; rm -rf "$scratch"' EXIT
mkdir -p "$scratch/bin" "$scratch/build" "$scratch/DIR"
ln -s "$build" "$scratch/build/desk"
ln -s "$build/phonesim" "$build/phonetest" "$scratch/bin"
ln -s "$sources/plans" "$scratch/plans"
cp "$sources/docs/images/blemish-picture.jpg" "$scratch/photo.jpg"
arm=$sources/build/phone/phonetestd
[ ! -e "$arm" ] || { mkdir "$scratch/build/phone"; cp "$arm" "$scratch/build/phone"; }
PATH=$scratch/bin:$PATH
cd "$scratch"

failures=0
fail() { echo "FAILED: $*"; failures=$((failures + 1)); }

# run_endless LINE: waits for its first output, then ends it.
run_endless() {
  : >output
  bash -c "exec $1" >output 2>&1 </dev/null &
  local process=$!
  while kill -0 "$process" 2>/dev/null && [ ! -s output ]; do sleep 0.05; done
  kill -TERM "$process" 2>/dev/null || true
  wait "$process" || true
  [ -s output ] && ! grep -q '^phonesim: ' output
}

# Each line finds one phone, named "phone", that has used its camera and its tone; a line that starts one finds none.
run_line() {
  local line=$1
  if [[ $line =~ \ start|$endless ]]; then
    stop_phones >/dev/null
    rm -f phone
  fi
  if [[ ! $line =~ \ start|^phonesim$|--no-server|--\ -g$ && ! -e phone ]]; then
    stop_phones >/dev/null
    phonesim --no-waiting --link "$scratch/phone" start >/dev/null
    phonetest --port "$scratch/phone" camera self-test >/dev/null
    phonetest --port "$scratch/phone" tone start 440 >/dev/null
    phonetest --port "$scratch/phone" tone stop >/dev/null
  fi
  line=${line//\/dev\/pts\/5/$scratch/phone}
  line=${line//\/tmp\/phone/$scratch/phone}
  if [[ $1 =~ $endless ]]; then run_endless "$line"; else bash -c "$line" >output 2>&1 </dev/null; fi
}

declare -A shown=()
while IFS= read -r line; do
  shown[$line]=1
  [ -z "${not_run[$line]:-}" ] || continue
  if [[ $line == *build/phone/* && ! -e build/phone ]]; then
    echo "skipped, since the phone's executable is not built: $line"
    continue
  fi
  run_line "$line" || fail "$line: $(cat output)"
done < <(cd "$sources" && awk '/^```sh/ {f = 1; next} /^```/ {f = 0} f' README.md CONTRIBUTING.md docs/*.md |
  sed 's/ *#.*//; /^$/d')
for line in "${!not_run[@]}"; do [ -n "${shown[$line]:-}" ] || fail "listed, but shown nowhere: $line"; done

# The text says `phonetest WORDS`: there is such a command, and WORDS begin with its name. For a word that it does not know,
# the tool shows the help of what came before.
while IFS= read -r words; do
  read -ra split <<<"$words"
  usage=$(phonetest "${split[@]}" --help 2>&1 | grep '^Usage:') || true
  command=${usage#Usage: phonetest }
  command=${command%%" [OPTIONS]"*}
  [[ $usage != *SUBCOMMAND* && -n $command && "$words " == "$command "* ]] || fail "phonetest $words: ${usage:-no such command}"
done < <(cd "$sources" && grep -ohE '`(build/desk/)?phonetest [a-z][^`]*`' README.md CONTRIBUTING.md docs/*.md |
  sed -E 's/`//g; s,^(build/desk/)?phonetest ,,; s/ [-A-Z./…].*//' | sort -u)

[ ${#shown[@]} -ge 40 ] || fail "only ${#shown[@]} command lines were found"
echo "${#shown[@]} command lines, ${#not_run[@]} of them not run; $failures failed"
[ "$failures" -eq 0 ]
