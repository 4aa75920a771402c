# veld_add_package(<target> <file name without .pck> SOURCES ... [OUTPUT_DIRECTORY dir])
#
# A package is a shared object named "<name>.pck" that links the framework
# statically and exports only VELDPckInit and VELDGetModulesDefStruct.
function(veld_add_package target file_name)
  cmake_parse_arguments(ARG "" "OUTPUT_DIRECTORY" "SOURCES;LIBRARIES;INCLUDES" ${ARGN})
  if(NOT ARG_OUTPUT_DIRECTORY)
    set(ARG_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
  endif()
  add_library(${target} MODULE ${ARG_SOURCES} $<TARGET_OBJECTS:veld_pck_entry>)
  set_target_properties(${target} PROPERTIES
    PREFIX ""
    SUFFIX ".pck"
    OUTPUT_NAME ${file_name}
    LIBRARY_OUTPUT_DIRECTORY ${ARG_OUTPUT_DIRECTORY})
  target_include_directories(${target} PRIVATE ${ARG_INCLUDES})
  target_link_libraries(${target} PRIVATE veld_framework ${ARG_LIBRARIES})
  target_link_options(${target} PRIVATE
    "LINKER:--version-script=${VELD_PACKAGE_EXPORTS}"
    "LINKER:--exclude-libs,ALL"
    "LINKER:-z,defs")
  set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${VELD_PACKAGE_EXPORTS})
endfunction()

set(VELD_PACKAGE_EXPORTS ${CMAKE_CURRENT_LIST_DIR}/package_exports.map)
