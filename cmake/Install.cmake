# Installs the two shared libraries, their headers, a CMake package (MorvikLib::MorvikLib,
# MorvikLib::MorvikPlatform) and a pkg-config file (morviklib).
include(CMakePackageConfigHelpers)

set(MORVIK_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/MorvikLib)
set(MORVIK_INSTALL_PLATFORM_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/MorvikLib/platform)

# The library finds its platform library beside it wherever the prefix ends up.
set_target_properties(MorvikLib MorvikPlatform PROPERTIES INSTALL_RPATH "$ORIGIN")

install(TARGETS MorvikLib MorvikPlatform
  EXPORT MorvikLibTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

function(morvik_install_headers from to)
  file(GLOB headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${from}/*.h)
  if(headers)
    install(FILES ${headers} DESTINATION ${to})
  endif()
endfunction()

morvik_install_headers(MorvikLib ${CMAKE_INSTALL_INCLUDEDIR}/MorvikLib)
morvik_install_headers(MorvikLib/generic ${CMAKE_INSTALL_INCLUDEDIR}/MorvikLib/generic)
foreach(part Kel Tralux ostra Morvik)
  morvik_install_headers(platform/${part} ${MORVIK_INSTALL_PLATFORM_INCLUDEDIR}/${part})
endforeach()

install(EXPORT MorvikLibTargets
  NAMESPACE MorvikLib::
  DESTINATION ${MORVIK_INSTALL_CMAKEDIR})

# A consumer must find whatever the exported targets name as public dependencies.
set(MORVIK_CONFIG_DEPENDENCIES "")
foreach(target MorvikLib MorvikPlatform)
  get_target_property(deps ${target} INTERFACE_LINK_LIBRARIES)
  if(deps AND "Threads::Threads" IN_LIST deps)
    set(MORVIK_CONFIG_DEPENDENCIES "find_dependency(Threads)")
  endif()
endforeach()

configure_package_config_file(
  ${CMAKE_CURRENT_LIST_DIR}/MorvikLibConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/MorvikLibConfig.cmake
  INSTALL_DESTINATION ${MORVIK_INSTALL_CMAKEDIR})
write_basic_package_version_file(
  ${CMAKE_CURRENT_BINARY_DIR}/MorvikLibConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/MorvikLibConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/MorvikLibConfigVersion.cmake
  DESTINATION ${MORVIK_INSTALL_CMAKEDIR})

# The .pc file locates the prefix from its own place, so `cmake --install --prefix` stays correct.
string(REGEX REPLACE "[^/]+" ".." MORVIK_PC_TO_PREFIX "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
configure_file(${CMAKE_CURRENT_LIST_DIR}/morviklib.pc.in
  ${CMAKE_CURRENT_BINARY_DIR}/morviklib.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/morviklib.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
