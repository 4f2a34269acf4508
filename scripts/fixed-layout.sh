# Sourced by bash with the caller's arguments, `. scripts/fixed-layout.sh "$@"`: runs the calling script again, once,
# with the same memory layout in every process. Where the kernel places a heap at random, about one start of Wine in
# 5,000 places it on the page that Windows keeps at 0x7ffe0000, and ends without a message. ThreadSanitizer of GCC 12
# does not work at all with the layouts of newer kernels.
# shellcheck shell=bash

if [[ -z ${TAMLOG_FIXED_LAYOUT:-} ]]; then
  export TAMLOG_FIXED_LAYOUT=1 # also where the system does not allow it: tried once only
  if setarch "$(uname -m)" -R true 2>/dev/null; then exec setarch "$(uname -m)" -R "$BASH" "$0" "$@"; fi
fi
