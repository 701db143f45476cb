# The hosts of the checks of the installation. Each directory beside this file finds the library in its own way,
# then calls
#
#   add_consumers(LIBRARY KIT)     with the names of the two targets there
enable_testing()

function(add_consumer name source standard)
  add_executable(${name} ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/${source})
  set_target_properties(${name} PROPERTIES
    CXX_STANDARD ${standard} CXX_STANDARD_REQUIRED ON CXX_EXTENSIONS OFF CXX_VISIBILITY_PRESET hidden)
  target_link_libraries(${name} PRIVATE ${ARGN})
  add_test(NAME ${name} COMMAND ${name})
endfunction()

function(add_consumers library kit)
  add_consumer(consumer consumer.cpp 11 ${library})
  add_consumer(kit_consumer kit_consumer.cpp 17 ${kit})
  add_consumer(kit_consumer_bare kit_consumer.cpp 17 ${kit})
  target_compile_options(kit_consumer_bare PRIVATE -fno-exceptions -fno-rtti)
  foreach(strict consumer kit_consumer kit_consumer_bare)
    target_compile_options(${strict} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror)
  endforeach()

  # A host keeps its own rules for warnings: it inherits neither our flags nor that warnings are errors.
  add_consumer(inherits_no_warnings inherits_no_warnings.cpp 17 ${kit})
  target_compile_options(inherits_no_warnings PRIVATE -Werror)
  add_consumer(inherits_no_errors inherits_no_errors.cpp 17 ${kit})
endfunction()
