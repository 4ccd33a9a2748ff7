# Turns the list of exports that the linker wrote into a module definition that other linkers take too:
#   cmake -DDLL=name -DLISTED=file -DDEF=file -P write_def.cmake
file(STRINGS ${LISTED} exports REGEX "^ +[A-Za-z_0-9]+ @[0-9]+")
list(TRANSFORM exports REPLACE " @[0-9]+.*" "")
list(SORT exports)
list(JOIN exports "\n" exports)
file(WRITE ${DEF} "LIBRARY ${DLL}\nEXPORTS\n${exports}\n")
