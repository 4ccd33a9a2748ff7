// How the DLL ends the process when an exception meets a function that is noexcept. What GCC's library does by default
// also names the exception's type on the standard error output, and for that it brings a demangler, a quarter of the
// DLL.
#include <cstdlib>
#include <exception>

#ifdef __GLIBCXX__
// Under the name of the library's own, which the linker then does not look for. (GCC's manual of libstdc++ describes it
// in chapter 4, "Termination".)
void __gnu_cxx::__verbose_terminate_handler() { std::abort(); }
#endif
