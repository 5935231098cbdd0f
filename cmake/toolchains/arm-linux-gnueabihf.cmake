# The instrument's 32-bit ARM board.
set(orla_triplet arm-linux-gnueabihf)
set(orla_processor arm)
set(orla_architecture armhf)
include("${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake")
