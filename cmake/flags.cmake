# Warnings and arithmetic flags shared by every target of the project.
# -ffp-contract=off keeps a*b+c from being fused on cores with FMA, so that a
# log replays to the same bits on the desktop and on the receiver.
set(DRLIB_WARNINGS -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion
    -Wdouble-promotion -Wcast-align -Wnull-dereference)
if(DRLIB_WERROR)
  list(APPEND DRLIB_WARNINGS -Werror)
endif()
add_compile_options(-ffp-contract=off -fno-fast-math)

if(DRLIB_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()

# Links `target` with each of the listed libraries that this configuration
# builds (the simulator and tool helpers exist only with DRLIB_BUILD_TOOLS).
function(drlib_link_present target)
  foreach(lib ${ARGN})
    if(TARGET ${lib})
      target_link_libraries(${target} PRIVATE ${lib})
    endif()
  endforeach()
endfunction()
