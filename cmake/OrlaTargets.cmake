# Helpers for this project's targets: warnings, optimisation, sanitizers, tests.

include_guard(GLOBAL)

set(ORLA_SANITIZE "" CACHE STRING "Sanitizers to build with, as -fsanitize= takes them")

add_library(orla_options INTERFACE)
target_compile_options(orla_options INTERFACE
    -Wall -Wextra -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-align -Wformat=2
    -Wnull-dereference -Wunused -Wvla
    $<$<CXX_COMPILER_ID:GNU>:-Wduplicated-cond> $<$<CXX_COMPILER_ID:GNU>:-Wlogical-op>)
# Every operation is rounded on its own, also where the processor could fuse two of them.
target_compile_options(orla_options INTERFACE -ffp-contract=off)
# A note on 32-bit ARM at each container of the standard library, of compilers long gone.
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^arm")
    target_compile_options(orla_options INTERFACE -Wno-psabi)
endif()

# A fault in memory ends the program rather than serving whoever caused it: canaries on the
# stack, checked copies, a program that is loaded anywhere and whose tables are read-only.
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)
target_compile_options(orla_options INTERFACE -fstack-protector-strong)
target_link_options(orla_options INTERFACE -Wl,-z,relro -Wl,-z,now)
# Checked copies need the optimiser, and the sanitizers have their own. Whoever asks for
# another level gets that.
if(NOT ORLA_SANITIZE AND NOT CMAKE_CXX_FLAGS MATCHES "_FORTIFY_SOURCE")
    target_compile_options(orla_options INTERFACE
        "$<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:SHELL:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2>")
endif()

# OpenCV's and Qt's inline code trips this one under the sanitizers' instrumentation.
if(ORLA_SANITIZE)
    target_compile_options(orla_options INTERFACE -Wno-null-dereference
        $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>
        -fsanitize=${ORLA_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    target_link_options(orla_options INTERFACE -fsanitize=${ORLA_SANITIZE})
endif()
target_include_directories(orla_options INTERFACE "${PROJECT_SOURCE_DIR}/verifier" "${PROJECT_SOURCE_DIR}")

# 32-bit ARM processors come with or without vector instructions, and the distribution's compiler
# counts on none; with them the focus measure takes a quarter of the instructions, with the same result.
option(ORLA_NEON "The 32-bit ARM processor that the programs run on has NEON" OFF)
set(_orla_hot_options -O3)
if(ORLA_NEON AND CMAKE_SYSTEM_PROCESSOR MATCHES "^arm")
    list(APPEND _orla_hot_options -mfpu=neon)
endif()

# orla_library(<target> SOURCES ... [PUBLIC libs...] [PRIVATE libs...] [HOT sources...])
# One static library per folder. A folder sees another only by naming its target
# here; the test house_includes holds the includes against that. HOT sources hold loops
# over pixels and are vectorised (-O3) in optimised builds.
function(orla_library target)
    cmake_parse_arguments(ARG "" "" "SOURCES;PUBLIC;PRIVATE;HOT" ${ARGN})
    add_library(${target} STATIC ${ARG_SOURCES} ${ARG_HOT})
    # Format 1 keeps no file times: the same sources give the same program.
    set_target_properties(${target} PROPERTIES AUTOMOC ON AUTOUIC ON AUTORCC ON
        AUTORCC_OPTIONS "--format-version;1")
    target_link_libraries(${target} PUBLIC orla_options ${ARG_PUBLIC} PRIVATE ${ARG_PRIVATE})
    if(ARG_HOT)
        set_source_files_properties(${ARG_HOT} PROPERTIES
            COMPILE_OPTIONS "$<$<NOT:$<CONFIG:Debug>>:${_orla_hot_options}>")
    endif()
endfunction()

# orla_wide_file_times(<sources>...)
# These sources read and write file times beyond 2038 also where the system's own are of 32 bits.
# Not for the program as a whole: the records of a frame that the kernel of such a board hands out
# hold a time too, and their size is part of the request's number. Elsewhere the system's calls keep
# their names, by which tests take their place.
function(orla_wide_file_times)
    if(CMAKE_SIZEOF_VOID_P EQUAL 4)
        set_property(SOURCE ${ARGN} APPEND PROPERTY COMPILE_DEFINITIONS _FILE_OFFSET_BITS=64 _TIME_BITS=64)
    endif()
endfunction()

# orla_count_conversions(<program>)
# The program knows how often a frame has been converted in it: support/ConversionCount.h.
function(orla_count_conversions PROGRAM)
    set(counter "${PROJECT_SOURCE_DIR}/tests/support/ConversionCount")
    target_sources(${PROGRAM} PRIVATE "${counter}.cpp" "${counter}.h")
    target_include_directories(${PROGRAM} PRIVATE "${PROJECT_SOURCE_DIR}/tests")
    target_link_libraries(${PROGRAM} PRIVATE PkgConfig::SWSCALE)
    target_link_options(${PROGRAM} PRIVATE -Wl,--wrap=sws_getContext)
endfunction()

# The last words of a Qt Test program whose cases have all skipped: what it counts as passed is
# no more than its own first and last step. Nothing follows them, so that a sanitizer's report
# after the end is a failure nevertheless.
set(orla_all_skipped
    "Totals: [12] passed, 0 failed, [1-9][0-9]* skipped[^\n]*\n[*]+ Finished testing of [^\n]*\n$")

# The test programs that ./test quick runs; it builds no others.
add_custom_target(quick_tests)

# How many times as long as shipped programs may tests take: instrumented, or where an emulator
# has to work out each instruction.
set(orla_patience 1)
if(ORLA_SANITIZE)
    set(orla_patience 4)
endif()
if(CMAKE_CROSSCOMPILING_EMULATOR)
    set(orla_patience 10)
endif()

# What every test program finds in its environment. Qt Test gives each function five minutes.
math(EXPR _function_limit_ms "${orla_patience} * 300000")
set(orla_test_environment
    QT_QPA_PLATFORM=offscreen
    QTEST_FUNCTION_TIMEOUT=${_function_limit_ms}
    ORLA_TEST_PATIENCE=${orla_patience}
    "TSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/support/tsan.supp:history_size=4"
    "LSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/support/lsan.supp"
    UBSAN_OPTIONS=print_stacktrace=1)
if(ORLA_SANITIZE)
    # Nothing here is drawn by GL, whose drivers leave memory behind that no suppression can name:
    # they are unloaded when the leaks are counted.
    list(APPEND orla_test_environment QT_XCB_GL_INTEGRATION=none)
endif()
if(CMAKE_CROSSCOMPILING_EMULATOR)
    list(APPEND orla_test_environment "ORLA_TEST_EMULATOR=${CMAKE_CROSSCOMPILING_EMULATOR}")
endif()

# Of a test that configures a project once more: with the same compiler.
set(orla_configure_environment)
if(CMAKE_TOOLCHAIN_FILE)
    # A preset names it from this project's folder.
    cmake_path(ABSOLUTE_PATH CMAKE_TOOLCHAIN_FILE BASE_DIRECTORY "${PROJECT_SOURCE_DIR}" NORMALIZE
        OUTPUT_VARIABLE _toolchain)
    set(orla_configure_environment "CMAKE_TOOLCHAIN_FILE=${_toolchain}")
endif()

# orla_time_limit(<test> <seconds>): what the test may take as shipped; longer where it has to be.
function(orla_time_limit name seconds)
    math(EXPR limit "${seconds} * ${orla_patience}")
    set_tests_properties(${name} PROPERTIES TIMEOUT ${limit})
endfunction()

# orla_test(<name> SOURCES ... [LIBRARIES ...] [TIMEOUT seconds] [LABELS ...])
# One Qt Test program, registered under its name, run without a display. Labels: "system", which
# needs the programs themselves, and "slow", which takes more than some seconds; ./test quick
# leaves both out.
function(orla_test name)
    cmake_parse_arguments(ARG "" "TIMEOUT" "SOURCES;LIBRARIES;LABELS" ${ARGN})
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 300)
    endif()
    add_executable(${name} ${ARG_SOURCES})
    set_target_properties(${name} PROPERTIES AUTOMOC ON)
    target_link_libraries(${name} PRIVATE orla_options ${ARG_LIBRARIES} Qt5::Test)
    if(NOT ARG_LABELS)
        add_dependencies(quick_tests ${name})
    endif()
    add_test(NAME ${name} COMMAND ${name})
    orla_time_limit(${name} ${ARG_TIMEOUT})
    set_tests_properties(${name} PROPERTIES
        LABELS "${ARG_LABELS}"
        SKIP_REGULAR_EXPRESSION "${orla_all_skipped}"
        ENVIRONMENT "${orla_test_environment}")
endfunction()

# orla_long_test(<test> <variable=value>...)
# The test once more, in an environment that makes it long; ./test long alone runs it, and may take
# an hour for a function and four for all of them, for a busy machine takes its time. Qt gives
# each of its functions five minutes unless told otherwise.
function(orla_long_test name)
    add_test(NAME ${name}_long COMMAND ${name} CONFIGURATIONS Long)
    get_test_property(${name} ENVIRONMENT environment)
    set_tests_properties(${name}_long PROPERTIES
        ENVIRONMENT "${environment};QTEST_FUNCTION_TIMEOUT=3600000;${ARGN}"
        LABELS long)
    orla_time_limit(${name}_long 14400)
endfunction()
