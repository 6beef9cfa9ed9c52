# Installs the two shared libraries, their public headers, a CMake package (MorvikLib::MorvikLib,
# MorvikLib::MorvikPlatform) and a pkg-config file (morviklib); the Python module installs itself
# (python/CMakeLists.txt).
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

# Exactly the public headers and what they and the examples include: the library's own under
# include/MorvikLib/, the platform's under include/MorvikLib/platform/.
include(${CMAKE_CURRENT_LIST_DIR}/HeaderClosure.cmake)
list(TRANSFORM MORVIK_PUBLIC_HEADERS PREPEND ${PROJECT_SOURCE_DIR}/ OUTPUT_VARIABLE public_headers)
file(GLOB example_sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/examples/*.cpp)
morvik_header_closure(included ROOTS ${public_headers} ${example_sources}
  INCLUDE_DIRS ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/platform)
set(installed_headers ${public_headers} ${included})
list(REMOVE_DUPLICATES installed_headers)
# A changed include list must change the install set.
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${installed_headers})
foreach(header IN LISTS installed_headers)
  cmake_path(RELATIVE_PATH header BASE_DIRECTORY ${PROJECT_SOURCE_DIR}/platform
    OUTPUT_VARIABLE platform_relative)
  if(platform_relative MATCHES "^\\.\\.")
    cmake_path(RELATIVE_PATH header BASE_DIRECTORY ${PROJECT_SOURCE_DIR} OUTPUT_VARIABLE relative)
    set(destination ${CMAKE_INSTALL_INCLUDEDIR})
  else()
    set(relative ${platform_relative})
    set(destination ${MORVIK_INSTALL_PLATFORM_INCLUDEDIR})
  endif()
  cmake_path(GET relative PARENT_PATH subdir)
  install(FILES ${header} DESTINATION ${destination}/${subdir})
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
