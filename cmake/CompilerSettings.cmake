# The language level, the warnings and the sanitizers that every target of the project is built with:
# link veltrin::settings.

add_library(veltrin-settings INTERFACE)
add_library(veltrin::settings ALIAS veltrin-settings)

target_compile_features(veltrin-settings INTERFACE cxx_std_20)
target_include_directories(veltrin-settings INTERFACE ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR}/generated)

target_compile_options(
  veltrin-settings
  INTERFACE -Wall
            -Wextra
            -Wpedantic
            -Wconversion
            -Wsign-conversion
            -Wshadow
            -Wformat=2
            -Wnon-virtual-dtor
            -Woverloaded-virtual
            -Wold-style-cast
            -Wcast-align
            -Wcast-qual
            -Wdouble-promotion
            -Wundef
            -Wunused
            -Wnull-dereference
            -Wimplicit-fallthrough
            -Wextra-semi
            -Wmissing-declarations
            $<$<CXX_COMPILER_ID:GNU>:-Wduplicated-cond
            -Wduplicated-branches
            -Wlogical-op
            -Wsuggest-override>
            $<$<BOOL:${VELTRIN_WARNINGS_ARE_ERRORS}>:-Werror>)

# A print server's filter is handed other people's data: keep the toolchain's own guards on. scripts/hardened looks for
# them in what is installed.
include(CheckCXXCompilerFlag)
include(CheckPIESupported)
check_pie_supported()
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
check_cxx_compiler_flag(-fcf-protection VELTRIN_HAS_CF_PROTECTION) # of some processors
# macOS's compiler and linker have no words for some of them: there it is so by itself.
target_compile_options(
  veltrin-settings
  INTERFACE -fstack-protector-strong $<$<NOT:$<PLATFORM_ID:Darwin>>:-fstack-clash-protection>
            $<$<BOOL:${VELTRIN_HAS_CF_PROTECTION}>:-fcf-protection>)
target_link_options(veltrin-settings INTERFACE
                    $<$<NOT:$<PLATFORM_ID:Darwin>>:LINKER:-z,relro,-z,now,-z,noexecstack>)

# Streams may be larger than 2 GiB where `off_t` has 32 bits otherwise.
target_compile_definitions(veltrin-settings INTERFACE _FILE_OFFSET_BITS=64)
if(NOT VELTRIN_SANITIZE)
  target_compile_definitions(veltrin-settings INTERFACE $<$<NOT:$<CONFIG:Debug>>:_FORTIFY_SOURCE=2>)
endif()
target_compile_definitions(veltrin-settings INTERFACE $<$<CONFIG:Debug>:_GLIBCXX_ASSERTIONS>)

if(VELTRIN_SANITIZE)
  target_compile_options(veltrin-settings INTERFACE -fsanitize=${VELTRIN_SANITIZE} -fno-sanitize-recover=all
                                                    -fno-omit-frame-pointer)
  target_link_options(veltrin-settings INTERFACE -fsanitize=${VELTRIN_SANITIZE} -fno-sanitize-recover=all)
endif()
