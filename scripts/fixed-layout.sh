# Sourced by bash with the caller's arguments, `. scripts/fixed-layout.sh "$@"`: runs the calling script anew, once,
# with memory laid out the same way in every process. Where the kernel places a heap at random, about one start of
# Wine in 5,000 finds it in the page that Windows keeps at 0x7ffe0000 and ends without a word; and ThreadSanitizer of
# GCC 12 cannot live with the layouts of newer kernels at all.
# shellcheck shell=bash

if [[ -z ${TAMLOG_FIXED_LAYOUT:-} ]]; then
  export TAMLOG_FIXED_LAYOUT=1 # also where the system does not allow it: asked once
  if setarch "$(uname -m)" -R true 2>/dev/null; then exec setarch "$(uname -m)" -R "$BASH" "$0" "$@"; fi
fi
