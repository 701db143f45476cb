# Shared by every target of this project. Warnings become errors in the presets alone
# (CMAKE_COMPILE_WARNING_AS_ERROR), so that a newer compiler never breaks a consumer's build.
function(talrtp_own_target target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic)
endfunction()
