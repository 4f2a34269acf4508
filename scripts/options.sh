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
