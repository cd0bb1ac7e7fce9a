# Real IPMI. The tool reaches a BMC through libfreeipmi (LAN and in-band), and
# the firmware simulator becomes a BMC as a module that OpenIPMI's ipmi_sim
# loads, so both ends speak the protocol that real firmware speaks.
include(GNUInstallDirs)

find_path(FREEIPMI_INCLUDE_DIR freeipmi/freeipmi.h REQUIRED)
find_library(FREEIPMI_LIBRARY freeipmi REQUIRED)
find_path(OPENIPMI_INCLUDE_DIR OpenIPMI/mcserv.h REQUIRED)

# The board checks its libfreeipmi option words (FreeIpmiOptions) and the ipmi
# room opens sessions with them; no other room sees libfreeipmi's headers.
target_include_directories(partmode_board SYSTEM PRIVATE ${FREEIPMI_INCLUDE_DIR})
target_include_directories(partmode_ipmi SYSTEM PRIVATE ${FREEIPMI_INCLUDE_DIR})
# The tool loads libfreeipmi only when a board names a BMC (FreeIpmiLibrary),
# by the name the library answers to, its SONAME.
execute_process(COMMAND ${CMAKE_OBJDUMP} -p ${FREEIPMI_LIBRARY} OUTPUT_VARIABLE freeipmi_headers)
if(NOT freeipmi_headers MATCHES "SONAME +([^ \n]+)")
  message(FATAL_ERROR "cannot read the SONAME of ${FREEIPMI_LIBRARY}")
endif()
set_property(SOURCE ${CMAKE_CURRENT_LIST_DIR}/../src/platform/ipmi/FreeIpmiLibrary.cpp APPEND PROPERTY
  COMPILE_DEFINITIONS PARTMODE_FREEIPMI_SONAME="${CMAKE_MATCH_1}")
target_link_libraries(partmode_ipmi PUBLIC ${CMAKE_DL_LIBS})

# The module links the simulator's static libraries into a shared object.
set_target_properties(partmode_base partmode_wire partmode_sim PROPERTIES POSITION_INDEPENDENT_CODE ON)

# ipmi_sim resolves its registration calls from its own executable when it
# loads the module, so the module leaves them undefined; only the entry
# points ipmi_sim looks up with dlsym are exported.
add_library(ipmi_sim MODULE
  ${CMAKE_CURRENT_LIST_DIR}/../sim/bmc/BmcModule.cpp
  ${CMAKE_CURRENT_LIST_DIR}/../sim/bmc/OpenIpmiRegistration.cpp)
target_include_directories(ipmi_sim SYSTEM PRIVATE ${OPENIPMI_INCLUDE_DIR})
target_link_libraries(ipmi_sim PRIVATE partmode_sim)
target_link_options(ipmi_sim PRIVATE -Wl,--exclude-libs,ALL)
set_target_properties(ipmi_sim PROPERTIES
  PREFIX ""
  OUTPUT_NAME partmode-bmc
  LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib/partmode
  CXX_VISIBILITY_PRESET hidden
  VISIBILITY_INLINES_HIDDEN ON)

# partmode-sim serve finds the module relative to its own folder, in the build
# tree as in an installation (lib/partmode below the prefix).
file(RELATIVE_PATH PARTMODE_BMC_MODULE_FROM_BINDIR ${CMAKE_INSTALL_FULL_BINDIR}
     ${CMAKE_INSTALL_PREFIX}/lib/partmode/partmode-bmc.so)
target_sources(partmode-sim PRIVATE ${CMAKE_CURRENT_LIST_DIR}/../sim/BmcServer.cpp
  ${CMAKE_CURRENT_LIST_DIR}/../sim/SystemInterfaceProbe.cpp)
# partmode-sim serve asks its BMC with libfreeipmi directly, so the package's
# Depends also names libfreeipmi, which the tool loads when it needs it.
target_link_libraries(partmode-sim PRIVATE ${FREEIPMI_LIBRARY})
target_compile_definitions(partmode-sim PRIVATE PARTMODE_BMC_MODULE_FROM_BINDIR="${PARTMODE_BMC_MODULE_FROM_BINDIR}")
add_dependencies(partmode-sim ipmi_sim)
