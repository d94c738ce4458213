# What the linker wrote of the exports, for others' tools: it names its DLL, and nobody links by number.
# usage: cmake -DDEF=FILE -DDLL=NAME -P def.cmake
file(STRINGS ${DEF} exports REGEX "@[0-9]+")
list(TRANSFORM exports REPLACE " @[0-9]+" "")
list(JOIN exports "\n" exports)
file(WRITE ${DEF} "LIBRARY ${DLL}\nEXPORTS\n${exports}\n")
