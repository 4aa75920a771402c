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
  set_property(GLOBAL APPEND PROPERTY VELD_PACKAGE_TARGETS ${target})
  get_property(dirs GLOBAL PROPERTY VELD_PACKAGE_DIRECTORIES)
  if(NOT ARG_OUTPUT_DIRECTORY IN_LIST dirs)
    set_property(GLOBAL APPEND PROPERTY VELD_PACKAGE_DIRECTORIES ${ARG_OUTPUT_DIRECTORY})
  endif()
endfunction()

# veld_package_companion(<target>)
# A file that a package finds in the folder "bin" beside itself (a library
# that it loads, a tool that it runs). Every package folder of the build gets
# a copy, and every package depends on it, so that a package is never built
# without what it looks for beside itself.
function(veld_package_companion target)
  set_property(GLOBAL APPEND PROPERTY VELD_PACKAGE_COMPANIONS ${target})
endfunction()

# Called once, at the end of the top CMakeLists.txt, when every package and
# companion is known. The copies are a target of their own per companion
# (a POST_BUILD step could only be added in the companion's own folder).
function(veld_place_package_companions)
  get_property(companions GLOBAL PROPERTY VELD_PACKAGE_COMPANIONS)
  get_property(dirs GLOBAL PROPERTY VELD_PACKAGE_DIRECTORIES)
  get_property(packages GLOBAL PROPERTY VELD_PACKAGE_TARGETS)
  foreach(companion IN LISTS companions)
    set(copies "")
    foreach(dir IN LISTS dirs)
      list(APPEND copies
        COMMAND ${CMAKE_COMMAND} -E make_directory ${dir}/bin
        COMMAND ${CMAKE_COMMAND} -E copy_if_different $<TARGET_FILE:${companion}> ${dir}/bin/)
    endforeach()
    add_custom_target(${companion}_beside_packages ALL ${copies} VERBATIM)
    add_dependencies(${companion}_beside_packages ${companion})
    foreach(package IN LISTS packages)
      add_dependencies(${package} ${companion}_beside_packages)
    endforeach()
  endforeach()
endfunction()

set(VELD_PACKAGE_EXPORTS ${CMAKE_CURRENT_LIST_DIR}/package_exports.map)
