#!/bin/bash
# Seeds the faults of scripts/mutants.txt into the source tree one at a time, builds the
# x86_64 target with its tests and runs them under wine: a fault is caught when a test
# fails. Each file is restored after its fault (also when the run is interrupted) and the
# clean tree is built again at the end. The files it changes must have no uncommitted changes.
#   scripts/mutants.sh [ID...]          runs every fault, or the ones named
#   scripts/mutants.sh --check [ID...]  only applies, builds and restores each fault
#   scripts/mutants.sh --list           lists the faults
set -uo pipefail
. "$(dirname "$0")/lib.sh"
export LC_ALL=C  # texts are compared and measured as bytes
BUILD="$KOVRA_ROOT/build/x86_64" LOGS="$KOVRA_ROOT/build/x86_64/mutants"

mode=run wanted=" "
for arg in "$@"; do
  case $arg in
    --list | --check) mode=${arg#--} ;;
    -*) sed -n '6,8p' "$0" >&2; exit 2 ;;
    *) wanted+="$arg " ;;
  esac
done
# A line of the list: ID FILE `TEXT` `REPLACEMENT` what the fault breaks.
ids=() files=() olds=() news=() whats=()
format='^([^ ]+) +([^ ]+) +`([^`]*)` +`([^`]*)` +(.+)$'
while IFS= read -r line; do
  [[ $line =~ ^[[:space:]]*(#|$) ]] && continue
  [[ $line =~ $format ]] || { echo "mutants.txt: not a fault: $line" >&2; exit 2; }
  [[ $wanted == " " || $wanted == *" ${BASH_REMATCH[1]} "* ]] || continue
  ids+=("${BASH_REMATCH[1]}") files+=("${BASH_REMATCH[2]}") olds+=("${BASH_REMATCH[3]}")
  news+=("${BASH_REMATCH[4]}") whats+=("${BASH_REMATCH[5]}")
done <"$KOVRA_ROOT/scripts/mutants.txt"
for id in $wanted; do [[ " ${ids[*]} " == *" $id "* ]] || { echo "no such fault: $id" >&2; exit 2; }; done
if [ $mode = list ]; then
  for i in "${!ids[@]}"; do printf '%-3s %-36s %s\n' "${ids[i]}" "${files[i]}" "${whats[i]}"; done
  exit 0
fi
if [ -n "$(git -C "$KOVRA_ROOT" status --porcelain -- "${files[@]}")" ]; then
  echo "commit or stash the changes of these files first:" >&2
  git -C "$KOVRA_ROOT" status --short -- "${files[@]}" >&2
  exit 2
fi

mutated=""
restore() { [ -z "$mutated" ] || git -C "$KOVRA_ROOT" checkout -q -- "$mutated"; mutated=""; }
trap 'restore; kovra_wine_down' EXIT
trap 'exit 130' INT TERM
# Replaces the fault's text in its file; fails unless the text occurs there exactly once.
apply() {
  local path="$KOVRA_ROOT/${files[$1]}" old=${olds[$1]} text rest
  [ -f "$path" ] || return 1
  text=$(cat "$path"; printf x) && text=${text%x} && rest=${text//"$old"/}
  [ $(( ${#text} - ${#rest} )) -eq ${#old} ] || return 1
  mutated=${files[$1]}
  printf '%s' "${text/"$old"/"${news[$1]}"}" >"$path"
}
build() { kovra_build x86_64 -DKOVRA_BUILD_TESTS=ON >>"$1" 2>&1; }
# The tests with a fresh wine server and fixtures; true when all of them pass. A test that
# fails runs once more: only a failure that happens again counts, not a hiccup of the machine.
run_tests() {
  kovra_wine_down
  rm -rf "$BUILD/fixtures" && kovra_wine_up "$BUILD" >/dev/null
  ctest --test-dir "$BUILD" --stop-on-failure --repeat until-pass:2 --timeout 120 >>"$1" 2>&1
}

mkdir -p "$LOGS" && : >"$LOGS/clean.log"
build "$LOGS/clean.log" || { echo "the clean tree doesn't build: $LOGS/clean.log" >&2; exit 1; }
if [ $mode = run ] && ! run_tests "$LOGS/clean.log"; then
  echo "the clean tree fails its tests, so no fault can be told apart: $LOGS/clean.log" >&2
  exit 1
fi
declare -A count
results=()
for i in "${!ids[@]}"; do
  log="$LOGS/${ids[i]}.log" by=""
  echo "== fault ${ids[i]} (${files[i]}): ${whats[i]}" | tee "$log"
  if ! apply "$i"; then outcome="does not apply"
  elif ! build "$log"; then outcome="does not build"
  elif [ $mode = check ]; then outcome="builds"
  elif run_tests "$log"; then outcome="MISSED"
  else outcome="caught" by=$(sed -n 's/^\t *[0-9]* - \([^ ]*\).*/\1/p' "$log")
  fi
  restore
  count[$outcome]=$(( ${count[$outcome]:-0} + 1 ))
  results+=("$(printf '%-3s %-14s %s' "${ids[i]}" "$outcome" "${whats[i]}")${by:+ [$by]}")
done
build "$LOGS/clean.log" || echo "the restored tree doesn't build: $LOGS/clean.log" >&2
printf '%s\n' "${results[@]}"
summary="== ${#ids[@]} faults:"
for outcome in caught MISSED builds "does not build" "does not apply"; do
  summary+="${count[$outcome]:+ ${count[$outcome]} $outcome,}"
done
echo "${summary%,}"
exit 0
