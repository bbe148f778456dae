# Finds Foundation and defines the target veltrin::foundation, for Objective-C++: macOS's own, elsewhere that of GNUstep.

include(FindPackageHandleStandardArgs)

if(APPLE)
  find_library(FOUNDATION_LIBRARY Foundation)
  find_library(CORE_FOUNDATION_LIBRARY CoreFoundation)
  mark_as_advanced(FOUNDATION_LIBRARY CORE_FOUNDATION_LIBRARY)
  find_package_handle_standard_args(Foundation REQUIRED_VARS FOUNDATION_LIBRARY CORE_FOUNDATION_LIBRARY)
  set(foundation_libraries ${FOUNDATION_LIBRARY} ${CORE_FOUNDATION_LIBRARY})
else()
  find_path(FOUNDATION_INCLUDE_DIR Foundation/Foundation.h PATH_SUFFIXES GNUstep)
  find_library(FOUNDATION_LIBRARY gnustep-base)
  # The runtime library lies among the compiler's own files: the linker finds it.
  mark_as_advanced(FOUNDATION_INCLUDE_DIR FOUNDATION_LIBRARY)
  find_package_handle_standard_args(Foundation REQUIRED_VARS FOUNDATION_LIBRARY FOUNDATION_INCLUDE_DIR)
  set(foundation_libraries ${FOUNDATION_LIBRARY} objc)
endif()

if(Foundation_FOUND AND NOT TARGET veltrin::foundation)
  add_library(veltrin::foundation INTERFACE IMPORTED)
  target_link_libraries(veltrin::foundation INTERFACE ${foundation_libraries})
  # CMake knows the language level of Objective-C++ for some compilers only.
  target_compile_options(veltrin::foundation INTERFACE $<$<COMPILE_LANGUAGE:OBJCXX>:-std=c++20>)
  if(NOT APPLE)
    target_include_directories(veltrin::foundation SYSTEM INTERFACE ${FOUNDATION_INCLUDE_DIR})
    # What "gnustep-config --objc-flags" asks for, as far as it is the same for everybody.
    target_compile_definitions(
      veltrin::foundation INTERFACE GNUSTEP GNUSTEP_BASE_LIBRARY=1 GNU_RUNTIME=1 _NATIVE_OBJC_EXCEPTIONS)
    target_compile_options(
      veltrin::foundation
      INTERFACE $<$<COMPILE_LANGUAGE:OBJCXX>:-fexceptions
                -fobjc-exceptions
                -fno-strict-aliasing
                -fconstant-string-class=NSConstantString
                # of GNUstep's headers, in each file that includes them
                -Wno-subobject-linkage>)
  endif()
endif()
