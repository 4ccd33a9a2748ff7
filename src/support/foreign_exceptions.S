/* The two frames that see exceptions of other compilers. GCC has no __try; these are what Visual C++ makes of
 *
 *     __try { call(argument); } __except (kivFilterForeign(GetExceptionInformation())) { return false; }  return true;
 *     __try { call(argument); } __finally { cleanUp(argument); }
 *
 * Both name __C_specific_handler, which the system exports for this purpose, as their handler, and describe their one
 * guarded range to it (a SCOPE_TABLE_AMD64: number of ranges, then begin, end, filter or clean-up, and the address to
 * continue at, which is 0 for a clean-up). Each call is followed by a nop, because the system takes the address behind
 * a call for the place of the exception, and that has to lie within the range.
 */
	.text

/* bool kivCallStoppingForeign(void (*call)(void*), void* argument) */
	.globl	kivCallStoppingForeign
	.def	kivCallStoppingForeign; .scl 2; .type 32; .endef
	.seh_proc kivCallStoppingForeign
kivCallStoppingForeign:
	subq	$40, %rsp
	.seh_stackalloc 40
	.seh_endprologue
	movq	%rcx, %rax
	movq	%rdx, %rcx
.Lguarded:
	call	*%rax
	nop
.LguardedEnd:
	movl	$1, %eax
	addq	$40, %rsp
	ret
.Lstopped:
	xorl	%eax, %eax
	addq	$40, %rsp
	ret
	.seh_handler __C_specific_handler, @except, @unwind
	.seh_handlerdata
	.long	1
	.rva	.Lguarded, .LguardedEnd, kivFilterForeign, .Lstopped
	.text
	.seh_endproc

/* void kivCallThenCleanUp(void (*call)(void*), void (*cleanUp)(void*), void* argument)
 *
 * The frame keeps `cleanUp` at 32 and `argument` at 40 above the stack pointer, which is also the frame's address as
 * the system passes it to the clean-up.
 */
	.globl	kivCallThenCleanUp
	.def	kivCallThenCleanUp; .scl 2; .type 32; .endef
	.seh_proc kivCallThenCleanUp
kivCallThenCleanUp:
	subq	$56, %rsp
	.seh_stackalloc 56
	.seh_endprologue
	movq	%rdx, 32(%rsp)
	movq	%r8, 40(%rsp)
	movq	%rcx, %rax
	movq	%r8, %rcx
.Llent:
	call	*%rax
	nop
.LlentEnd:
	movq	40(%rsp), %rcx
	call	*32(%rsp)
	nop
	addq	$56, %rsp
	ret
	.seh_handler __C_specific_handler, @except, @unwind
	.seh_handlerdata
	.long	1
	.rva	.Llent, .LlentEnd, .LcleanUp
	.long	0
	.text
	.seh_endproc

/* void cleanUp(BOOLEAN abnormal, void* frame): a leaf, so it needs no description of its own. */
.LcleanUp:
	movq	40(%rdx), %rcx
	jmp	*32(%rdx)
