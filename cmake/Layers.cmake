# The layers of the library, and the library made of them.

# Where the public headers lie in the build tree: <TesselServer/Name.h> leads to the layer's own file, so a host
# includes the same names before and after an installation.
set(TESSEL_INCLUDE_DIR ${CMAKE_CURRENT_BINARY_DIR}/include)

set(TESSEL_LIBRARY_OPTIONS "" CACHE STRING "More compiler options for the sources of the library alone")
mark_as_advanced(TESSEL_LIBRARY_OPTIONS)

# tessel_layer(name [USES layer...])
#
# Makes the object library tessel_<name> from <name>/sources.cmake, which sets SOURCES (paths below <name>/) and
# PUBLIC_HEADERS (installed as TesselServer/<file name>). USES names every layer below that it may call.
function(tessel_layer name)
  cmake_parse_arguments(LAYER "" "" "USES" ${ARGN})
  set(SOURCES "")
  set(PUBLIC_HEADERS "")
  include(${PROJECT_SOURCE_DIR}/${name}/sources.cmake)
  list(TRANSFORM SOURCES PREPEND ${PROJECT_SOURCE_DIR}/${name}/)
  add_library(tessel_${name} OBJECT ${SOURCES})
  target_compile_features(tessel_${name} PUBLIC cxx_std_20)
  set_target_properties(tessel_${name} PROPERTIES CXX_EXTENSIONS OFF POSITION_INDEPENDENT_CODE ON)
  # The library calls its own functions and nobody else's of the same name, also where it is shared.
  if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
    target_compile_options(tessel_${name} PRIVATE -fno-semantic-interposition)
  endif()
  target_compile_options(tessel_${name} PRIVATE ${TESSEL_LIBRARY_OPTIONS})
  target_include_directories(tessel_${name} PUBLIC ${PROJECT_SOURCE_DIR} ${TESSEL_INCLUDE_DIR})
  file(MAKE_DIRECTORY ${TESSEL_INCLUDE_DIR}/TesselServer)
  foreach(header ${PUBLIC_HEADERS})
    cmake_path(GET header FILENAME file)
    file(CREATE_LINK ${PROJECT_SOURCE_DIR}/${name}/${header} ${TESSEL_INCLUDE_DIR}/TesselServer/${file} SYMBOLIC)
    set_property(GLOBAL APPEND PROPERTY TESSEL_PUBLIC_HEADERS ${PROJECT_SOURCE_DIR}/${name}/${header})
  endforeach()
  set_property(GLOBAL APPEND PROPERTY TESSEL_LAYERS ${name})
  set_property(GLOBAL PROPERTY TESSEL_USES_${name} ${LAYER_USES})
endfunction()

# tessel_link_layers(target layer): links `layer` and every layer below it into `target`, and nothing else.
function(tessel_link_layers target layer)
  get_property(uses GLOBAL PROPERTY TESSEL_USES_${layer})
  foreach(each ${layer} ${uses})
    target_link_libraries(${target} PRIVATE tessel_${each})
  endforeach()
endfunction()

# tessel_library(): the library TesselServer::TesselServer made of all layers, with its install rules.
function(tessel_library)
  get_property(layers GLOBAL PROPERTY TESSEL_LAYERS)
  get_property(headers GLOBAL PROPERTY TESSEL_PUBLIC_HEADERS)
  add_library(TesselServer)
  add_library(TesselServer::TesselServer ALIAS TesselServer)
  foreach(layer ${layers})
    target_sources(TesselServer PRIVATE $<TARGET_OBJECTS:tessel_${layer}>)
  endforeach()
  set_target_properties(TesselServer PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
                                                LINKER_LANGUAGE CXX)
  target_compile_features(TesselServer PUBLIC cxx_std_20)
  target_include_directories(TesselServer PUBLIC $<BUILD_INTERFACE:${TESSEL_INCLUDE_DIR}>
                                                 $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  if(NOT TESSEL_INSTALL)
    return()
  endif()
  install(TARGETS TesselServer EXPORT TesselServerTargets)
  install(FILES ${headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/TesselServer)
  install(EXPORT TesselServerTargets NAMESPACE TesselServer:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/TesselServer)
  include(CMakePackageConfigHelpers)
  configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/TesselServerConfig.cmake.in
    ${PROJECT_BINARY_DIR}/TesselServerConfig.cmake
    INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/TesselServer)
  write_basic_package_version_file(${PROJECT_BINARY_DIR}/TesselServerConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
  install(FILES ${PROJECT_BINARY_DIR}/TesselServerConfig.cmake ${PROJECT_BINARY_DIR}/TesselServerConfigVersion.cmake
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/TesselServer)
endfunction()
