/* uint32_t lumtest_call_misaligned(const void* fn, const uint32_t* args,
                                    int nargs, int offset)
   Copies nargs words of arguments onto a fresh stack area whose address is
   offset bytes past a 16-byte boundary, calls fn, returns its EAX. */
        .text
        .globl  lumtest_call_misaligned
        .type   lumtest_call_misaligned, @function
lumtest_call_misaligned:
        pushl   %ebp
        movl    %esp, %ebp
        pushl   %esi
        pushl   %edi
        movl    16(%ebp), %ecx          /* nargs */
        imull   $-4, %ecx, %edx
        leal    -64(%esp,%edx), %edx    /* room for the arguments and more */
        andl    $-16, %edx
        addl    20(%ebp), %edx          /* + offset */
        movl    %edx, %esp
        movl    12(%ebp), %esi          /* args */
        movl    %esp, %edi
        rep movsl                       /* the direction flag is clear at calls */
        call    *8(%ebp)
        leal    -8(%ebp), %esp
        popl    %edi
        popl    %esi
        popl    %ebp
        ret
        .size   lumtest_call_misaligned, .-lumtest_call_misaligned
        .section .note.GNU-stack,"",@progbits
