/* The null descriptor that ends the list of delay-loaded libraries. dlltool puts the other ones into sections that are
 * called .text$2, and the linker sorts such sections by their names. */
	.section .text$3, "dr"
	.globl kiv_end_of_delay_list
kiv_end_of_delay_list:
	.zero 32
