#!/bin/sh
# check_generic_instructions.sh OBJECT...
# The generic build must run on any i686 processor: its objects may use no
# MMX or SSE register and no SSE-era instruction (fences, streaming stores,
# prefetches, MXCSR access). The run on an emulated processor without SSE
# covers the paths the tests execute; this covers every instruction.
set -eu
[ $# -gt 0 ] || { echo "no objects given"; exit 1; }
bad=$(objdump -d --no-show-raw-insn "$@" |
  grep -E '%xmm|%mm[0-7]|\b(emms|sfence|lfence|mfence|movnti|prefetch[a-z0-9]*|ldmxcsr|stmxcsr|fxsave|fxrstor|clflush)\b' |
  head -n 20 || true)
if [ -n "$bad" ]; then
  echo "the generic build uses instructions an i686 processor may lack:"
  echo "$bad"
  exit 1
fi
echo "generic build: $(objdump -d "$@" | grep -c '^ ') instructions, none beyond i686 and x87"
