# Sourced by bash, by scripts that take numbers as options.
# shellcheck shell=bash

# whole_number OPTION VALUE [DIGITS]: ends the shell with 2 unless VALUE is a whole number from 1 on with at most DIGITS
# digits (5).
whole_number() {
  local digits=${3:-5}
  [[ ${2:-} =~ ^[1-9][0-9]*$ && ${#2} -le $digits ]] && return
  echo "${0##*/}: $1 needs a whole number from 1 to $((10 ** digits - 1)), not \"${2:-}\"" >&2
  exit 2
}

# number_options "NAME:DIGITS..." [ARGUMENT...]: sets the variable NAME to N for each `--NAME N`, a whole number of at most
# DIGITS digits. `--help` prints the script's `usage`, whose first line is "usage: SCRIPT ...", and ends the shell. Any
# other argument ends it with 2.
number_options() {
  local known=$1 name command each
  shift
  while (($# > 0)); do
    [[ $1 != -h && $1 != --help ]] || { usage; exit 0; }
    name=
    for each in $known; do [[ $1 != "--${each%:*}" ]] || name=$each; done
    if [[ -z $name ]]; then
      read -r _ command _ < <(usage)
      echo "${0##*/}: unknown option \"$1\"; see $command --help" >&2
      exit 2
    fi
    whole_number "$1" "${2:-}" "${name#*:}"
    printf -v "${name%:*}" %s "$2"
    shift 2
  done
}
