# Finds single OpenCV modules and makes one imported target of each (opencv_core, ...). The name by
# which a program loads one while it runs is OpenCV_<module>_SONAME.
#
# The distribution ships OpenCV's own CMake package only with all of its modules and
# their several hundred dependencies; the three that are used here come in packages of
# their own, without it.

find_path(OpenCV_INCLUDE_DIR opencv2/core.hpp PATH_SUFFIXES opencv4)
if(OpenCV_INCLUDE_DIR)
    file(READ "${OpenCV_INCLUDE_DIR}/opencv2/core/version.hpp" _text)
    foreach(_part MAJOR MINOR REVISION)
        string(REGEX MATCH "CV_VERSION_${_part} +([0-9]+)" _ "${_text}")
        set(_${_part} "${CMAKE_MATCH_1}")
    endforeach()
    set(OpenCV_VERSION "${_MAJOR}.${_MINOR}.${_REVISION}")
endif()

foreach(_module IN LISTS OpenCV_FIND_COMPONENTS)
    find_library(OpenCV_${_module}_LIBRARY opencv_${_module})
    if(OpenCV_INCLUDE_DIR AND OpenCV_${_module}_LIBRARY)
        set(OpenCV_${_module}_FOUND TRUE)
        execute_process(COMMAND "${CMAKE_READELF}" --dynamic "${OpenCV_${_module}_LIBRARY}"
            OUTPUT_VARIABLE _text COMMAND_ERROR_IS_FATAL ANY)
        string(REGEX REPLACE ".*\\(SONAME\\)[^[]*\\[([^]]*)\\].*" "\\1" OpenCV_${_module}_SONAME "${_text}")
        if(NOT TARGET opencv_${_module})
            add_library(opencv_${_module} UNKNOWN IMPORTED)
            set_target_properties(opencv_${_module} PROPERTIES
                IMPORTED_LOCATION "${OpenCV_${_module}_LIBRARY}"
                INTERFACE_INCLUDE_DIRECTORIES "${OpenCV_INCLUDE_DIR}")
        endif()
    endif()
endforeach()

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(OpenCV
    REQUIRED_VARS OpenCV_INCLUDE_DIR VERSION_VAR OpenCV_VERSION HANDLE_COMPONENTS)
