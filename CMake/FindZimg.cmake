# Finds zimg, which has no CMake package of its own, and defines the target Zimg::Zimg.
find_path(Zimg_INCLUDE_DIR zimg.h)
find_library(Zimg_LIBRARY zimg)
mark_as_advanced(Zimg_INCLUDE_DIR Zimg_LIBRARY)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(Zimg REQUIRED_VARS Zimg_LIBRARY Zimg_INCLUDE_DIR)

if(Zimg_FOUND AND NOT TARGET Zimg::Zimg)
  add_library(Zimg::Zimg UNKNOWN IMPORTED)
  set_target_properties(Zimg::Zimg PROPERTIES IMPORTED_LOCATION "${Zimg_LIBRARY}"
                                              INTERFACE_INCLUDE_DIRECTORIES "${Zimg_INCLUDE_DIR}")
endif()
