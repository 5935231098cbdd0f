# Writes what CMake knows of this project's own targets, for the test that holds the includes
# against the links (scripts/house.py).

include_guard(GLOBAL)

# _orla_list_targets(<variable> <directory>): the targets of a directory and of those below it.
function(_orla_list_targets variable directory)
    get_property(targets DIRECTORY "${directory}" PROPERTY BUILDSYSTEM_TARGETS)
    get_property(directories DIRECTORY "${directory}" PROPERTY SUBDIRECTORIES)
    foreach(below IN LISTS directories)
        _orla_list_targets(more "${below}")
        list(APPEND targets ${more})
    endforeach()
    set(${variable} "${targets}" PARENT_SCOPE)
endfunction()

# orla_write_target_table(<file>): one line "target NAME FOLDER" for each library and program
# of the project, and below it a line for each of its files ("source"), of its links ("link"),
# of its folders for includes ("include"), and of the links and folders that it hands on to
# those who link it ("interface-link", "interface-include"). Folders and files are relative to
# the project's root. To be called when every target is declared.
function(orla_write_target_table file)
    set(table "")
    _orla_list_targets(targets "${PROJECT_SOURCE_DIR}")
    foreach(target IN LISTS targets)
        get_target_property(type ${target} TYPE)
        if(type STREQUAL UTILITY)
            continue()
        endif()
        get_target_property(folder ${target} SOURCE_DIR)
        file(RELATIVE_PATH relative "${PROJECT_SOURCE_DIR}" "${folder}")
        string(APPEND table "target ${target} ${relative}\n")
        foreach(property IN ITEMS
                source:SOURCES link:LINK_LIBRARIES interface-link:INTERFACE_LINK_LIBRARIES
                include:INCLUDE_DIRECTORIES interface-include:INTERFACE_INCLUDE_DIRECTORIES)
            string(REPLACE ":" ";" property "${property}")
            list(POP_FRONT property word)
            get_target_property(values ${target} ${property})
            if(NOT values)
                continue()
            endif()
            foreach(value IN LISTS values)
                if(word MATCHES "source|include" AND NOT value MATCHES "^\\$<")
                    get_filename_component(value "${value}" ABSOLUTE BASE_DIR "${folder}")
                    file(RELATIVE_PATH value "${PROJECT_SOURCE_DIR}" "${value}")
                endif()
                string(APPEND table "${word} ${value}\n")
            endforeach()
        endforeach()
    endforeach()
    file(WRITE "${file}" "${table}")
endfunction()
