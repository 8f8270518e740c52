option(BRISKO_TESTS "Build the tests" ON)
option(BRISKO_BENCHMARKS "Build the benchmarks" OFF)
option(BRISKO_SANITIZE "Build with AddressSanitizer and UndefinedBehaviorSanitizer" OFF)
option(BRISKO_SANITIZE_THREADS "Build with ThreadSanitizer" OFF)
option(BRISKO_FUZZ "Build the fuzzers, with clang and with BRISKO_SANITIZE" OFF)
option(BRISKO_COVERAGE "Build with clang's source-based coverage" OFF)
option(BRISKO_CONDITIONS "Record with clang 19 what each condition of src/ decides" OFF)

if(APPLE)
  # CMake defines $<LINK_GROUP:RESCAN,…> for linkers that search each library once. Apple's linker searches all of
  # them until every symbol is found.
  foreach(language IN ITEMS CXX OBJCXX)
    set(CMAKE_${language}_LINK_GROUP_USING_RESCAN_SUPPORTED TRUE)
    set(CMAKE_${language}_LINK_GROUP_USING_RESCAN "" "")
  endforeach()
endif()

# All our own code is compiled with these options; warnings are errors.
add_library(brisko_options INTERFACE)
set(BRISKO_WARNINGS -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)
target_compile_options(brisko_options INTERFACE ${BRISKO_WARNINGS})
# The bytes of a simulated run must not depend on the compiler.
target_compile_options(brisko_options INTERFACE -ffp-contract=off)
target_include_directories(brisko_options INTERFACE ${PROJECT_SOURCE_DIR}/src)
# The library checks its preconditions in the debug and sanitizer builds.
target_compile_definitions(brisko_options INTERFACE $<$<CONFIG:Debug>:_GLIBCXX_ASSERTIONS>)
# Collecting its garbage costs GCC much time in the large sources, so it uses more memory instead.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  add_compile_options("SHELL:--param ggc-min-expand=1000" "SHELL:--param ggc-min-heapsize=2000000")
endif()
# The compiler only checks the sources of this program, in NAME-checked, unless somebody asks for the program.
function(brisko_only_checked name)
  get_target_property(sources ${name} SOURCES)
  set_target_properties(${name} PROPERTIES EXCLUDE_FROM_ALL ON)
  add_library(${name}-checked OBJECT ${sources})
  set_target_properties(${name}-checked PROPERTIES CXX_COMPILER_LAUNCHER ${PROJECT_SOURCE_DIR}/cmake/syntax-only.sh)
endfunction()
# For code that is entered only now and then: optimising it takes longer than it saves. -Og is GCC's quickest level that
# is not slow to run.
set(BRISKO_SELDOM_RUN $<$<CONFIG:Debug>:-O0> $<$<AND:$<CONFIG:Release>,$<CXX_COMPILER_ID:GNU>>:-Og>)
# Every test program is linked for every build, and this linker is faster than the default one.
find_program(BRISKO_LLD NAMES ld.lld ld.lld-14)
if(BRISKO_LLD AND NOT APPLE)
  add_link_options(-fuse-ld=lld)
endif()

# Of options that contradict each other the last one counts, and those of a folder come before those of its targets: the
# tests switch a sanitizer off.
if(BRISKO_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
  # A program at a fixed address starts faster, and the tests start thousands.
  if(NOT APPLE)
    add_link_options(-no-pie)
  endif()
  if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    add_compile_options(-fsanitize-ignorelist=${PROJECT_SOURCE_DIR}/cmake/sanitizer-ignore.txt)
  endif()
endif()
if(BRISKO_SANITIZE_THREADS)
  if(BRISKO_SANITIZE)
    message(FATAL_ERROR "ThreadSanitizer cannot be combined with another sanitizer")
  endif()
  target_compile_options(brisko_options INTERFACE -fsanitize=thread -fno-omit-frame-pointer)
  target_link_options(brisko_options INTERFACE -fsanitize=thread)
endif()
if(BRISKO_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang" OR NOT BRISKO_SANITIZE)
    message(FATAL_ERROR "The fuzzers need clang and BRISKO_SANITIZE; use the preset fuzz")
  endif()
  target_compile_options(brisko_options INTERFACE -fsanitize=fuzzer-no-link)
endif()
if(BRISKO_COVERAGE)
  # Counters are in the mapped profile file, so processes that end by _exit, abort or kill -9 count too.
  target_compile_options(brisko_options INTERFACE -fprofile-instr-generate -fcoverage-mapping
                                                  "SHELL:-mllvm -runtime-counter-relocation")
  target_link_options(brisko_options INTERFACE -fprofile-instr-generate)
endif()
# Which conditions of src/ decide something, for `make conditions`. The tests, which are much larger, are not recorded.
# A decision that clang cannot record is a warning, and so an error.
function(brisko_record_conditions target)
  if(BRISKO_CONDITIONS)
    target_compile_options(${target} PRIVATE -fprofile-instr-generate -fcoverage-mapping -fcoverage-mcdc
                                             -fprofile-update=atomic)
  endif()
endfunction()
