# The layers of the library, and the libraries made of them.

# Where the public headers lie in the build tree: <TesselServer/Name.h> leads to the layer's own file, so a host
# includes the same names before and after an installation.
set(TESSEL_INCLUDE_DIR ${CMAKE_CURRENT_BINARY_DIR}/include)

set(TESSEL_LIBRARY_OPTIONS "" CACHE STRING "More compiler options for the sources of the library alone")
mark_as_advanced(TESSEL_LIBRARY_OPTIONS)

# tessel_objects(target layer sources...): an object library of sources below <layer>/.
function(tessel_objects target layer)
  list(TRANSFORM ARGN PREPEND ${PROJECT_SOURCE_DIR}/${layer}/ OUTPUT_VARIABLE sources)
  add_library(${target} OBJECT ${sources})
  target_compile_features(${target} PUBLIC cxx_std_20)
  set_target_properties(${target} PROPERTIES CXX_EXTENSIONS OFF POSITION_INDEPENDENT_CODE ON)
  # The library calls its own functions and nobody else's of the same name, also where it is shared.
  if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
    target_compile_options(${target} PRIVATE -fno-semantic-interposition)
  endif()
  target_compile_options(${target} PRIVATE ${TESSEL_LIBRARY_OPTIONS})
  target_include_directories(${target} PUBLIC ${PROJECT_SOURCE_DIR} ${TESSEL_INCLUDE_DIR})
endfunction()

# tessel_layer(name [USES layer...])
#
# Makes object libraries from <name>/sources.cmake: tessel_<name> of its SOURCES (paths below <name>/) and, where there
# are any, tessel_<name>_toolbox of its TOOLBOX_SOURCES, which SOURCES never use. PUBLIC_HEADERS and TOOLBOX_HEADERS are
# installed as TesselServer/<file name>. USES names every layer below that it may call.
function(tessel_layer name)
  cmake_parse_arguments(LAYER "" "" "USES" ${ARGN})
  foreach(list SOURCES PUBLIC_HEADERS TOOLBOX_SOURCES TOOLBOX_HEADERS)
    set(${list} "")
  endforeach()
  include(${PROJECT_SOURCE_DIR}/${name}/sources.cmake)
  tessel_objects(tessel_${name} ${name} ${SOURCES})
  if(TOOLBOX_SOURCES)
    tessel_objects(tessel_${name}_toolbox ${name} ${TOOLBOX_SOURCES})
    set_property(GLOBAL APPEND PROPERTY TESSEL_TOOLBOX_LAYERS ${name})
  endif()
  file(MAKE_DIRECTORY ${TESSEL_INCLUDE_DIR}/TesselServer)
  foreach(header ${PUBLIC_HEADERS} ${TOOLBOX_HEADERS})
    cmake_path(GET header FILENAME file)
    file(CREATE_LINK ${PROJECT_SOURCE_DIR}/${name}/${header} ${TESSEL_INCLUDE_DIR}/TesselServer/${file} SYMBOLIC)
    set_property(GLOBAL APPEND PROPERTY TESSEL_PUBLIC_HEADERS ${PROJECT_SOURCE_DIR}/${name}/${header})
  endforeach()
  set_property(GLOBAL APPEND PROPERTY TESSEL_LAYERS ${name})
  set_property(GLOBAL PROPERTY TESSEL_USES_${name} ${LAYER_USES})
endfunction()

# tessel_link_layers(target layer): links `layer` and every layer below it into `target`, and nothing else. What belongs
# to the toolbox comes along where `layer` has a part in it.
function(tessel_link_layers target layer)
  get_property(uses GLOBAL PROPERTY TESSEL_USES_${layer})
  foreach(each ${layer} ${uses})
    target_link_libraries(${target} PRIVATE tessel_${each})
    if(TARGET tessel_${layer}_toolbox AND TARGET tessel_${each}_toolbox)
      target_link_libraries(${target} PRIVATE tessel_${each}_toolbox)
    endif()
  endforeach()
endfunction()

# tessel_add_library(name alias objects...): one library of the project, made of object libraries.
function(tessel_add_library name alias)
  add_library(${name})
  add_library(TesselServer::${alias} ALIAS ${name})
  foreach(objects ${ARGN})
    target_sources(${name} PRIVATE $<TARGET_OBJECTS:${objects}>)
  endforeach()
  set_target_properties(${name} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
                                           LINKER_LANGUAGE CXX EXPORT_NAME ${alias})
  target_compile_features(${name} PUBLIC cxx_std_20)
endfunction()

# tessel_library(): the library TesselServer::TesselServer made of all layers, TesselServer::Toolbox made of what the
# layers have beside, and their install rules.
function(tessel_library)
  get_property(layers GLOBAL PROPERTY TESSEL_LAYERS)
  list(TRANSFORM layers PREPEND tessel_)
  tessel_add_library(TesselServer TesselServer ${layers})
  target_include_directories(TesselServer PUBLIC $<BUILD_INTERFACE:${TESSEL_INCLUDE_DIR}>
                                                 $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  get_property(tools GLOBAL PROPERTY TESSEL_TOOLBOX_LAYERS)
  list(TRANSFORM tools REPLACE "(.+)" "tessel_\\1_toolbox")
  tessel_add_library(TesselToolbox Toolbox ${tools})
  target_link_libraries(TesselToolbox PUBLIC TesselServer)
  if(NOT TESSEL_INSTALL)
    return()
  endif()
  get_property(headers GLOBAL PROPERTY TESSEL_PUBLIC_HEADERS)
  install(TARGETS TesselServer TesselToolbox EXPORT TesselServerTargets)
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
