# Functions shared by the CMakeLists.txt of every folder.

# Warnings and sanitizers for every target of the project.
function(moxdev_target_options target)
  target_compile_features(${target} PUBLIC cxx_std_17)
  set_target_properties(${target} PROPERTIES CXX_EXTENSIONS OFF)
  target_compile_options(${target} PRIVATE -Wall -Wextra $<$<BOOL:${MOXDEV_WERROR}>:-Werror>)
  if(MOXDEV_SANITIZE)
    target_compile_options(${target} PRIVATE -fsanitize=address,undefined
                           -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(${target} PRIVATE -fsanitize=address,undefined)
  endif()
endfunction()

# moxdev_generate(NAME OUTPUT file... COMMAND tool args... DEPENDS file... COMMENT text)
#
# Makes OUTPUT with COMMAND at build time and names the step
# moxdev_generated_<NAME>: a target in any folder that uses one of the
# outputs adds that as a dependency (add_dependencies), since the build of
# another folder does not know how to make them.
function(moxdev_generate name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "COMMENT" "OUTPUT;COMMAND;DEPENDS")
  add_custom_command(
    OUTPUT ${arg_OUTPUT}
    COMMAND ${arg_COMMAND}
    DEPENDS ${arg_DEPENDS}
    COMMENT "${arg_COMMENT}"
    VERBATIM)
  add_custom_target(moxdev_generated_${name} DEPENDS ${arg_OUTPUT})
endfunction()

# Adds compile and link options to every compiled target of `dir` and of the
# directories below it. Runs deferred, at the end of the top directory, so it
# also reaches targets defined after the call.
function(moxdev_instrument_targets dir compile_options link_options)
  get_property(targets DIRECTORY ${dir} PROPERTY BUILDSYSTEM_TARGETS)
  foreach(target IN LISTS targets)
    get_target_property(type ${target} TYPE)
    if(type MATCHES "^(EXECUTABLE|SHARED_LIBRARY|STATIC_LIBRARY|MODULE_LIBRARY|OBJECT_LIBRARY)$")
      target_compile_options(${target} PRIVATE ${compile_options})
      if(NOT type STREQUAL "OBJECT_LIBRARY" AND NOT type STREQUAL "STATIC_LIBRARY")
        target_link_options(${target} PRIVATE ${link_options})
      endif()
    endif()
  endforeach()
  get_property(subdirectories DIRECTORY ${dir} PROPERTY SUBDIRECTORIES)
  foreach(subdirectory IN LISTS subdirectories)
    moxdev_instrument_targets(${subdirectory} "${compile_options}" "${link_options}")
  endforeach()
endfunction()

# Instruments the whole build, once every folder has been read.
function(moxdev_instrument_everything compile_options link_options)
  cmake_language(DEFER DIRECTORY ${PROJECT_SOURCE_DIR} CALL moxdev_instrument_targets
    ${PROJECT_SOURCE_DIR} "${compile_options}" "${link_options}")
endfunction()
