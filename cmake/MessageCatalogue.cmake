# Message catalogues: nls/LOCALE.msg is compiled by gencat into
# LOCALE/LC_MESSAGES/partmode below the locale folder. In the build tree that
# folder lies where an installed partmode looks relative to its own folder, so
# the built tool and the tests read the shipped catalogue too.
include(GNUInstallDirs)
find_program(GENCAT_EXECUTABLE gencat REQUIRED)

set(PARTMODE_CATALOGUE_NAME partmode)
file(RELATIVE_PATH PARTMODE_LOCALEDIR_FROM_BINDIR ${CMAKE_INSTALL_FULL_SBINDIR} ${CMAKE_INSTALL_FULL_LOCALEDIR})
set(PARTMODE_BUILD_LOCALEDIR ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/${PARTMODE_LOCALEDIR_FROM_BINDIR})
cmake_path(NORMAL_PATH PARTMODE_BUILD_LOCALEDIR)

# Compiles the catalogue source `source` into `output`; a target of the
# calling folder must depend on `output`.
function(partmode_gencat source output)
  get_filename_component(folder ${output} DIRECTORY)
  # gencat merges into an existing catalogue, so each build starts afresh.
  add_custom_command(OUTPUT ${output}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${folder}
    COMMAND ${CMAKE_COMMAND} -E rm -f ${output}
    COMMAND ${GENCAT_EXECUTABLE} ${output} ${source}
    DEPENDS ${source}
    VERBATIM)
endfunction()

file(GLOB PARTMODE_CATALOGUE_SOURCES CONFIGURE_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/../nls/*.msg)
set(PARTMODE_CATALOGUES)
foreach(source IN LISTS PARTMODE_CATALOGUE_SOURCES)
  get_filename_component(locale ${source} NAME_WLE)
  set(folder ${PARTMODE_BUILD_LOCALEDIR}/${locale}/LC_MESSAGES)
  partmode_gencat(${source} ${folder}/${PARTMODE_CATALOGUE_NAME})
  install(FILES ${folder}/${PARTMODE_CATALOGUE_NAME} DESTINATION ${CMAKE_INSTALL_LOCALEDIR}/${locale}/LC_MESSAGES)
  list(APPEND PARTMODE_CATALOGUES ${folder}/${PARTMODE_CATALOGUE_NAME})
endforeach()
add_custom_target(partmode_catalogues ALL DEPENDS ${PARTMODE_CATALOGUES})
add_dependencies(partmode_core partmode_catalogues)

set_property(SOURCE ${CMAKE_CURRENT_LIST_DIR}/../src/platform/log/MessageCatalogue.cpp APPEND PROPERTY COMPILE_DEFINITIONS
  PARTMODE_CATALOGUE_NAME="${PARTMODE_CATALOGUE_NAME}"
  PARTMODE_LOCALEDIR="${CMAKE_INSTALL_FULL_LOCALEDIR}"
  PARTMODE_LOCALEDIR_FROM_BINDIR="${PARTMODE_LOCALEDIR_FROM_BINDIR}")
