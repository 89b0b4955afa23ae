# The program runs as root on input from the network: what compiler and linker can do for it is asked
# for here, whatever their defaults are. tools/check-hardening looks whether it arrived.
include(CheckCXXCompilerFlag)

# Files above 2 GiB and times behind 2038 on 32-bit devices as well.
add_compile_definitions(_FILE_OFFSET_BITS=64 _TIME_BITS=64)
add_compile_definitions(_GLIBCXX_ASSERTIONS)
add_compile_options(-fPIE)
add_link_options(-pie -Wl,-z,relro,-z,now,-z,noexecstack)

# The sanitizers see more than these, which would get in their way.
if(NOT UPDATER_SANITIZE)
  add_compile_options(-fstack-protector-strong)
  # It does nothing but warn where the compiler does not optimise.
  set(optimised $<CONFIG:Release,RelWithDebInfo,MinSizeRel>)
  add_compile_options($<${optimised}:-U_FORTIFY_SOURCE> $<${optimised}:-D_FORTIFY_SOURCE=3>)
  foreach(flag -fstack-clash-protection -fcf-protection=full -mbranch-protection=standard)
    string(MAKE_C_IDENTIFIER "HAVE${flag}" have)
    check_cxx_compiler_flag(${flag} ${have})  # not every processor has each
    if(${have})
      add_compile_options(${flag})
    endif()
  endforeach()
endif()
