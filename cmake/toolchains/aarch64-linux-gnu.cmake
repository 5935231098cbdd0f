# A board with a 64-bit ARM processor.
set(orla_triplet aarch64-linux-gnu)
set(orla_processor aarch64)
set(orla_architecture arm64)
include("${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake")
