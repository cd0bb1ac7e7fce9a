# Installation. Every path lies below the prefix, so
# DESTDIR and the prefix (CMAKE_INSTALL_PREFIX, cmake --install --prefix)
# relocate the installation whole; partmode finds its catalogue relative to
# its own folder.
include(GNUInstallDirs)

set(PARTMODE_SOURCE_DIR ${CMAKE_CURRENT_LIST_DIR}/..)

install(TARGETS partmode RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR})
install(TARGETS partmode-sim RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES ${PARTMODE_SOURCE_DIR}/man/partmode.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)
install(FILES ${PARTMODE_SOURCE_DIR}/man/partmode-sim.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
# One completion file per program, named after it.
install(DIRECTORY ${PARTMODE_SOURCE_DIR}/completion/
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)

# The example board lies beside the board the tool reads: /etc/partmode for
# the prefix /usr, PREFIX/etc/partmode for any other. The prefix is only known
# when installing (cmake --install --prefix), hence a script.
install(CODE "
  if(CMAKE_INSTALL_PREFIX STREQUAL \"/usr\")
    set(partmode_board_folder /etc/partmode)
  else()
    set(partmode_board_folder \"\${CMAKE_INSTALL_PREFIX}/etc/partmode\")
  endif()
  file(INSTALL \"${PARTMODE_SOURCE_DIR}/etc/board.json.example\" DESTINATION \"\${partmode_board_folder}\")
")

# The firmware simulator's ipmi_sim module, once the build has one; deferred
# so that it may be defined after this file.
function(partmode_install_modules)
  if(TARGET ipmi_sim)
    install(TARGETS ipmi_sim LIBRARY DESTINATION lib/partmode)
  endif()
endfunction()
cmake_language(DEFER DIRECTORY ${CMAKE_SOURCE_DIR} CALL partmode_install_modules)
