# The options that every target of the project is compiled with.
add_library(hxr_options INTERFACE)
target_compile_options(hxr_options INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wundef -Werror
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual -Wold-style-cast>)
if(CMAKE_UNITY_BUILD)
  # Files that are compiled together see each other's local names, which says nothing about either.
  target_compile_options(hxr_options INTERFACE -Wno-shadow $<$<COMPILE_LANGUAGE:CXX>:-Wno-subobject-linkage>)
endif()
if(HXR_SANITIZE)
  target_compile_options(hxr_options INTERFACE
    -fsanitize=${HXR_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(hxr_options INTERFACE -fsanitize=${HXR_SANITIZE})
endif()
