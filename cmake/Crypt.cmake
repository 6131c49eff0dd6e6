# crypt(3), for passwords that are kept as hashes. It is a library of the system's own; without it everything else works,
# and a line with a hash admits no client.
include(CheckCXXSourceCompiles)
include(CMakePushCheckState)

option(TESSEL_WITH_CRYPT "Check hashed passwords with crypt(3) where the system has it" ON)

find_library(TESSEL_CRYPT_LIBRARY crypt)
mark_as_advanced(TESSEL_CRYPT_LIBRARY)
set(TESSEL_CRYPT_FOUND OFF)
if(TESSEL_WITH_CRYPT AND TESSEL_CRYPT_LIBRARY)
  cmake_push_check_state(RESET)
  set(CMAKE_REQUIRED_LIBRARIES crypt)
  check_cxx_source_compiles("
    #include <crypt.h>
    int main() {
      static crypt_data data;
      return crypt_r(\"a\", \"$5$b\", &data) == nullptr;
    }" TESSEL_CRYPT_COMPILES)
  cmake_pop_check_state()
  set(TESSEL_CRYPT_FOUND ${TESSEL_CRYPT_COMPILES})
endif()
if(NOT TESSEL_CRYPT_FOUND)
  message(STATUS "Without crypt(3): hashed passwords admit no client")
endif()

# tessel_use_crypt(objects): they are compiled for it, and programs made of them are linked with it.
function(tessel_use_crypt objects)
  if(TESSEL_CRYPT_FOUND)
    target_compile_definitions(${objects} PRIVATE TESSEL_HAS_CRYPT=1)
    target_link_libraries(${objects} INTERFACE crypt)
  else()
    target_compile_definitions(${objects} PRIVATE TESSEL_HAS_CRYPT=0)
  endif()
endfunction()

# tessel_link_crypt(library): a program that links the library links crypt(3) too, by its name, also where the library
# was installed.
function(tessel_link_crypt library)
  if(TESSEL_CRYPT_FOUND)
    target_link_libraries(${library} PRIVATE crypt)
  endif()
endfunction()
