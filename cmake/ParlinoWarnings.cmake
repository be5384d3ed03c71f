# Warnings for the project's own targets; third-party headers come in as system includes.
add_library(parlino_warnings INTERFACE)
target_compile_options(parlino_warnings INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wold-style-cast -Wcast-align
    -Woverloaded-virtual -Wimplicit-fallthrough
    $<$<BOOL:${PARLINO_WERROR}>:-Werror>)
target_compile_definitions(parlino_warnings INTERFACE
    QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII QT_NO_URL_CAST_FROM_STRING QT_USE_QSTRINGBUILDER
    QT_NO_KEYWORDS)

# parlino_add_library(NAME SOURCES... LINKS ...): one static library per subsystem folder.
function(parlino_add_library name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LINKS" ${ARGN})
    set(compiled ${ARG_SOURCES})
    list(FILTER compiled INCLUDE REGEX "\\.cpp$")
    if(NOT compiled)
        return() # a folder with nothing to compile yet
    endif()
    add_library(${name} STATIC ${ARG_SOURCES})
    target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR}/src ${PROJECT_BINARY_DIR}/src)
    target_link_libraries(${name} PUBLIC ${ARG_LINKS} PRIVATE parlino_warnings)
endfunction()

# Links the subsystem libraries among `deps` that this tree defines (configured earlier).
function(parlino_link_existing target)
    foreach(dep ${ARGN})
        if(TARGET ${dep})
            target_link_libraries(${target} PUBLIC ${dep})
        endif()
    endforeach()
endfunction()
