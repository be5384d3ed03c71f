# Warnings for the project's own targets; third-party headers come in as system includes.
add_library(parlino_warnings INTERFACE)
target_compile_options(parlino_warnings INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wold-style-cast -Wcast-align
    -Woverloaded-virtual -Wimplicit-fallthrough
    $<$<BOOL:${PARLINO_WERROR}>:-Werror>)
target_compile_definitions(parlino_warnings INTERFACE
    QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII QT_NO_URL_CAST_FROM_STRING QT_USE_QSTRINGBUILDER
    QT_NO_KEYWORDS)

# parlino_add_library(NAME LINKS ...): the static library of one folder of src/, made of every header
# and source in that folder. Each folder is one library and its CMakeLists.txt defines that library only.
function(parlino_add_library name)
    cmake_parse_arguments(ARG "" "" "LINKS" ${ARGN})
    file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp ${CMAKE_CURRENT_SOURCE_DIR}/*.h)
    add_library(${name} STATIC ${sources})
    target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR}/src ${PROJECT_BINARY_DIR}/src)
    target_link_libraries(${name} PUBLIC ${ARG_LINKS} PRIVATE parlino_warnings)
endfunction()
