#!/usr/bin/env python3
"""check_vector_state.py OBJECT...    |    check_vector_state.py --self-test

Two rules of the per-build objects, proven on every path of every function
(disassembled with objdump, a control-flow graph per function following its
jumps, and a forward dataflow over it):

1. MMX state. An instruction naming an MMX register (%mm0..%mm7) makes the
   x87 registers unusable until EMMS. On some path from such an instruction,
   before an EMMS, the function must not reach an x87 instruction (its values
   would all be NaNs), a call, a return, or an indirect or tail jump (the code
   there is free to use the x87).
2. Store fences. A non-temporal store (movnt*, maskmov*) is weakly ordered. On
   some path from it the function must not reach a return or a tail or
   indirect jump before an sfence or mfence: a thread that waits for the
   caller's release store could read the destination stale.

Jumps into the function are followed; a direct jump out of it (its target
outside the function, or given by a relocation) is a tail jump. A call that
cannot return, a sanitizer's report that ends the process, ends a path
without breaking either rule: nothing runs after it.

Each violation is reported with its object, function and address; the exit
status is 1 when there is any. --self-test runs the analysis on small
assembled functions whose verdicts are known (needs `as`).
"""
import os
import re
import subprocess
import sys
import tempfile

# ---- Instructions -------------------------------------------------------------------

PREFIXES = {"lock", "rep", "repz", "repe", "repnz", "repne", "notrack", "bnd", "data16", "addr16",
            "cs", "ds", "es", "fs", "gs", "ss"}
MMX_REGISTER = re.compile(r"%mm[0-7]\b")
CONDITIONAL_JUMP = re.compile(r"^(j(?!mp$)[a-z]+|loop[a-z]*)$")
NON_TEMPORAL_STORE = re.compile(r"^(movnt[a-z0-9]*|maskmov[a-z0-9]*)$")
# Instructions whose names start with f but leave the x87 registers alone.
NOT_X87 = {"fxsave", "fxrstor", "femms"}
# Calls after which nothing of the library runs: the sanitizers' reports that end the
# process, and the bookkeeping the address sanitizer does just before any call that
# never returns.
NO_RETURN_CALL = re.compile(r"^(__asan_report_(load|store)[a-z0-9_]*(?<!_noabort)|__ubsan_handle_[a-z0-9_]+_abort|"
                            r"__asan_handle_no_return)$")


def is_x87(mnemonic):
    return (mnemonic.startswith("f") and mnemonic not in NOT_X87) or mnemonic == "wait"


class Insn:
    __slots__ = ("section", "addr", "mnemonic", "operands", "relocs", "text")

    def __init__(self, section, addr, mnemonic, operands, relocs, text):
        self.section, self.addr, self.mnemonic, self.operands = section, addr, mnemonic, operands
        self.relocs, self.text = relocs, text  # relocs: (offset, symbol)


class Function:
    """A function with the parts the compiler moved elsewhere (name.cold in
    .text.unlikely): one control-flow graph over all its instructions."""

    def __init__(self, obj, section, name):
        self.obj, self.section, self.name = obj, section, name
        self.insns = []


LINE = re.compile(r"^\s*([0-9a-f]+):\t([^\t]*)(.*)$")
RELOC = re.compile(r"\t([0-9a-f]+): (R_386_\w+)\t(\S+)")
SYMBOL = re.compile(r"^([0-9a-f]+) <(.+)>:$")
SECTION = re.compile(r"^Disassembly of section (\S+):$")
COLD_PART = re.compile(r"\.cold(\.[0-9]+)?$")


def parse(obj):
    """The functions of one object, and where each symbol starts: {name: (section, address)}."""
    out = subprocess.run(["objdump", "-dr", "-w", "--no-show-raw-insn", obj], check=True,
                         capture_output=True, text=True).stdout
    parts, symbols, section, current = [], {}, None, None
    for line in out.splitlines():
        m = SECTION.match(line)
        if m:
            section, current = m.group(1), None
            symbols[section] = (section, 0)
            continue
        m = SYMBOL.match(line)
        if m:
            current = Function(obj, section, m.group(2))
            parts.append(current)
            symbols[current.name] = (section, int(m.group(1), 16))
            continue
        m = LINE.match(line)
        if not m or current is None:
            continue
        words = m.group(2).split()
        while words and words[0] in PREFIXES:
            words = words[1:]
        if not words:
            continue
        relocs = [(int(r[0], 16), r[2]) for r in RELOC.findall(m.group(3))]
        text = m.group(2).strip() + "".join(" <%s>" % r[1] for r in relocs)
        current.insns.append(Insn(section, int(m.group(1), 16), words[0], " ".join(words[1:]), relocs, text))
    functions = {}
    for part in parts:  # main parts first, then the cold parts joined to theirs
        if part.insns and not COLD_PART.search(part.name):
            functions[part.name] = part
    for part in parts:
        if part.insns and COLD_PART.search(part.name):
            main = functions.setdefault(COLD_PART.sub("", part.name), part)
            if main is not part:
                main.insns.extend(part.insns)
    return list(functions.values()), symbols


# ---- Control flow -----------------------------------------------------------------

def jump_target(insn, symbols):
    """Where a direct jump goes, (section, address); None for an indirect jump, and
    (None, None) for a symbol defined elsewhere. A jump the assembler could not resolve
    carries a relocation: the symbol's address plus the offset objdump shows from the
    relocated field."""
    if insn.operands.startswith("*"):
        return None
    m = re.match(r"^([0-9a-f]+)\b", insn.operands)
    if not m:
        return None
    shown = int(m.group(1), 16)
    if not insn.relocs:
        return (insn.section, shown)
    offset, symbol = insn.relocs[0]
    if symbol not in symbols:
        return (None, None)
    section, start = symbols[symbol]
    return (section, start + shown - offset)


def edges(function, symbols):
    """For each instruction: its kind ('jump-out', 'indirect', 'return', 'call', 'no-return',
    'end' or None) and the indices of its successors inside the function."""
    insns = function.insns
    index = {(insn.section, insn.addr): i for i, insn in enumerate(insns)}
    result = []
    for i, insn in enumerate(insns):
        nxt = [i + 1] if i + 1 < len(insns) and insns[i + 1].section == insn.section else []
        m = insn.mnemonic
        if m in ("ret", "retl", "iret", "lret"):
            result.append(("return", []))
        elif m in ("ud2", "hlt", "int3"):
            result.append(("end", []))
        elif m in ("call", "calll"):
            callee = insn.relocs[0][1] if insn.relocs else ""
            if NO_RETURN_CALL.match(callee):
                result.append(("no-return", []))
            else:
                result.append(("call", nxt))
        elif m in ("jmp", "jmpl") or CONDITIONAL_JUMP.match(m):
            fall = nxt if m not in ("jmp", "jmpl") else []
            target = jump_target(insn, symbols)
            if target is None:
                result.append(("indirect", fall))
            elif target not in index:
                result.append(("jump-out", fall))
            else:
                result.append((None, fall + [index[target]]))
        else:
            result.append((None, nxt))
    return result


# ---- The two dataflows ------------------------------------------------------------
# State at a point: the set of instructions (addresses) that may have left it
# unfinished there, MMX use or unfenced non-temporal stores; the union joins paths.

def mmx_transfer(insn, state):
    if insn.mnemonic in ("emms", "femms"):
        return frozenset()
    if MMX_REGISTER.search(insn.operands):
        return frozenset([insn.addr])
    return state


def mmx_breaks(insn, kind):
    if is_x87(insn.mnemonic):
        return "x87 instruction"
    return {"call": "call", "return": "return", "jump-out": "tail jump",
            "indirect": "indirect jump"}.get(kind)


def fence_transfer(insn, state):
    if insn.mnemonic in ("sfence", "mfence"):
        return frozenset()
    if NON_TEMPORAL_STORE.match(insn.mnemonic):
        return state | {insn.addr}
    return state


def fence_breaks(insn, kind):
    return {"return": "return", "jump-out": "tail jump", "indirect": "indirect jump"}.get(kind)


RULES = (
    ("mmx", mmx_transfer, mmx_breaks, "while MMX state is live (no EMMS since {origin})"),
    ("fence", fence_transfer, fence_breaks, "with a non-temporal store unfenced (no sfence since {origin})"),
)


def analyse(function, symbols):
    """Violations of both rules: (rule, instruction, what, origin address)."""
    flow = edges(function, symbols)
    n = len(function.insns)
    found = []
    for rule, transfer, breaks, _ in RULES:
        before = [frozenset()] * n
        work = list(range(n))
        queued = [True] * n
        while work:
            i = work.pop()
            queued[i] = False
            after = transfer(function.insns[i], before[i])
            for j in flow[i][1]:
                joined = before[j] | after
                if joined != before[j]:
                    before[j] = joined
                    if not queued[j]:
                        queued[j] = True
                        work.append(j)
        for i, insn in enumerate(function.insns):
            what = breaks(insn, flow[i][0])
            # An instruction that itself starts the state (an MMX load) cannot break it.
            if what and before[i]:
                found.append((rule, insn, what, min(before[i])))
    return found


def demangle(names):
    try:
        out = subprocess.run(["c++filt"], input="\n".join(names), capture_output=True, text=True,
                             check=True).stdout.splitlines()
        return dict(zip(names, out)) if len(out) == len(names) else {n: n for n in names}
    except (OSError, subprocess.CalledProcessError):
        return {n: n for n in names}


def check(objects):
    reports, functions = [], 0
    for obj in objects:
        found, symbols = parse(obj)
        for f in found:
            functions += 1
            for rule, insn, what, origin in analyse(f, symbols):
                reports.append((f, rule, insn, what, origin))
    names = demangle(sorted({f.name for f, *_ in reports}))
    details = dict((r, d) for r, _, _, d in RULES)
    for f, rule, insn, what, origin in reports:
        print("%s: %s, %s 0x%x: %s (%s) %s" % (f.obj, names[f.name], insn.section, insn.addr, what, insn.text,
                                                details[rule].format(origin="0x%x" % origin)))
    return reports, functions


# ---- Self-test --------------------------------------------------------------------
# Each snippet is one function; the verdict lists the rule and what breaks it,
# in address order ([] passes).

SNIPPETS = [
    ("mmx_loop_then_emms", """
        movl $8, %ecx
    1:  movq (%eax), %mm0
        paddb %mm0, %mm0
        movq %mm0, (%edx)
        addl $8, %eax
        decl %ecx
        jnz 1b
        emms
        flds (%eax)
        call external
        ret""", []),
    ("x87_around_a_branch", """
        movq (%eax), %mm0
        testl %ecx, %ecx
        jz 1f
        emms
    1:  flds (%eax)
        fstps (%edx)
        emms
        ret""", [("mmx", "x87 instruction"), ("mmx", "x87 instruction")]),
    ("x87_at_the_head_of_a_loop_whose_tail_uses_mmx", """
        movl $8, %ecx
    1:  fldz
        fstps (%edx)
        movq (%eax), %mm1
        decl %ecx
        jnz 1b
        emms
        ret""", [("mmx", "x87 instruction"), ("mmx", "x87 instruction")]),
    ("call_while_mmx_is_live", """
        pxor %mm0, %mm0
        call external
        emms
        ret""", [("mmx", "call")]),
    ("return_while_mmx_is_live", """
        cvtps2pi %xmm0, %mm0
        movq %mm0, (%eax)
        ret""", [("mmx", "return")]),
    ("tail_jump_and_indirect_jump_while_mmx_is_live", """
        movd %eax, %mm0
        testl %eax, %eax
        jz 1f
        jmp external
    1:  jmp *%ecx""", [("mmx", "tail jump"), ("mmx", "indirect jump")]),
    ("cold_part_that_ends_in_a_report", """
        movq (%eax), %mm0
        testl %eax, %eax
        jz cold_part_that_ends_in_a_report.cold
        emms
        ret
        .section .text.unlikely
    cold_part_that_ends_in_a_report.cold:
        call __asan_handle_no_return
        call __ubsan_handle_shift_out_of_bounds_abort""", []),
    ("cold_part_that_uses_the_x87_and_comes_back", """
        movq (%eax), %mm0
        testl %eax, %eax
        jz cold_part_that_uses_the_x87_and_comes_back.cold
    1:  emms
        ret
        .section .text.unlikely
    cold_part_that_uses_the_x87_and_comes_back.cold:
        fldz
        jmp 1b""", [("mmx", "x87 instruction")]),
    ("sanitizer_report_while_mmx_is_live", """
        movq (%eax), %mm0
        testl %eax, %eax
        jz 1f
        call __asan_report_load8
    1:  emms
        ret""", []),
    ("streamed_loop_then_fence", """
        movl $8, %ecx
    1:  movntps %xmm0, (%eax)
        addl $16, %eax
        decl %ecx
        jnz 1b
        sfence
        ret""", []),
    ("fence_skipped_on_one_path", """
        movntq %mm0, (%eax)
        emms
        testl %ecx, %ecx
        jz 1f
        sfence
    1:  ret""", [("fence", "return")]),
    ("streamed_then_tail_jump", """
        movnti %eax, (%edx)
        call external
        jmp external""", [("fence", "tail jump")]),
]


def self_test():
    with tempfile.TemporaryDirectory() as tmp:
        source = os.path.join(tmp, "snippets.s")
        with open(source, "w") as f:
            f.write("\t.text\n")
            for name, body, _ in SNIPPETS:
                f.write("\t.text\n\t.globl %s\n\t.type %s, @function\n%s:\n" % (name, name, name))
                for line in body.strip("\n").splitlines():
                    f.write("\t%s\n" % line.strip())
        obj = os.path.join(tmp, "snippets.o")
        subprocess.run(["as", "--32", "-o", obj, source], check=True)
        got = {}
        found, symbols = parse(obj)
        for f in found:
            got[f.name] = sorted((insn.section, insn.addr, rule, what) for rule, insn, what, _ in analyse(f, symbols))
    failures = 0
    for name, _, want in SNIPPETS:
        verdict = [(rule, what) for _, _, rule, what in got.get(name, [])]
        if name not in got or verdict != want:
            print("self-test %s: got %s, want %s" % (name, verdict, want))
            failures += 1
    print("self-test: %d of %d snippets as expected" % (len(SNIPPETS) - failures, len(SNIPPETS)))
    return failures == 0


def main(argv):
    if argv == ["--self-test"]:
        return 0 if self_test() else 1
    if not argv:
        print(__doc__.strip().splitlines()[0])
        return 2
    reports, functions = check(argv)
    if reports:
        print("%d violations in %d functions of %d objects" % (len(reports), functions, len(argv)))
        return 1
    print("%d functions of %d objects: no x87, call, return or jump out while MMX state is live, "
          "no return or jump out with a non-temporal store unfenced" % (functions, len(argv)))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
