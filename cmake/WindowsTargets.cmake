# Settings and helpers shared by every Windows target.

# The product runs from Windows XP on: a later function has to be looked up at run time, so the headers do not offer it.
set(CRV_OLDEST_WINDOWS 0x0502)

add_compile_definitions(UNICODE _UNICODE WIN32_LEAN_AND_MEAN NOMINMAX STRICT _GLIBCXX_ASSERTIONS
  PSAPI_VERSION=1)
set(CRV_SYMBOLS symbols)  # the folder of the program databases, below the build tree
file(MAKE_DIRECTORY "${CMAKE_BINARY_DIR}/${CRV_SYMBOLS}")

# No path of the machine stays in the images, so that two clones build the same bytes. Frame pointers let a dump's stack be walked where
# there is no debug information.
add_compile_options("-ffile-prefix-map=${CMAKE_SOURCE_DIR}/=" "-ffile-prefix-map=${CMAKE_BINARY_DIR}/=build/" -fno-omit-frame-pointer)
# libstdc++ and the thread library are linked in; libgcc is shared, so that an exception thrown in one DLL can be caught in another.
# Each image counts its uncaught exceptions for itself, so what std::uncaught_exceptions says must never be compared across DLLs: a throw
# that comes from another one is not counted in this one, and the catch clause that ends it counts one too few.
add_link_options(-Wl,--dynamicbase -Wl,--nxcompat -Wl,-Bstatic)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  # A program database for each image, which the image names without a folder. The link time is a hash of the content: debuggers
  # and symbol stores find an image by it and by its size. LLD's own choice of versions would keep Windows XP from loading the image.
  # What nothing calls stays in: LLD would leave a function of ours out and keep its exception frame, with a place that the loader moves
  # from 0 to another image's code. In a moved DLL every throw could then end the process.
  add_compile_options(-gcodeview -gno-codeview-command-line -ffile-compilation-dir=/corvid-wsc)
  # Two throws of a function that end in the same instructions would else become one, and a dump name the line of the other.
  add_compile_options("SHELL:-mllvm -enable-tail-merge=false")
  add_link_options("-Wl,--pdb=${CRV_SYMBOLS}/$<TARGET_PROPERTY:NAME>.pdb" "-Wl,-Xlink=-pdbaltpath:$<TARGET_PROPERTY:NAME>.pdb"
    -Wl,-Xlink=-pdbsourcepath:/corvid-wsc -Wl,-Xlink=-Brepro
    -Wl,--major-os-version,4 -Wl,--minor-os-version,0 -Wl,--major-subsystem-version,4 -Wl,--minor-subsystem-version,0)
  # What the runtime's own objects bring is in another format and no use to the readers of program databases.
  foreach(rule IN ITEMS LINK_EXECUTABLE CREATE_SHARED_LIBRARY)
    foreach(language IN ITEMS C CXX)
      string(APPEND CMAKE_${language}_${rule} " && \"${CRV_STRIP}\" --strip-debug <TARGET>")
    endforeach()
  endforeach()
else()
  add_compile_options(-gdwarf-4)
  add_link_options(-Wl,--no-insert-timestamp -shared-libgcc)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  # In GCC's C++ library the exception frames of each function that an object may share with others lie in a section of their own, for
  # which the assembler wrote no symbol. LLD knows by that symbol alone what such a section belongs to, and leaves it out: a throw that
  # has to pass the function (a failed allocation in a string, in the constructor of an exception) would end the process. In our copy of
  # the library the frames are ordinary ones, which the linker keeps, in the order that leaves the end mark last. The copy's folder is
  # named after the library's content: a link line that stays the same would leave the images with an older one.
  set(library "${CRV_GCC_LIBRARIES}/libstdc++.a")
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${library}")
  execute_process(COMMAND i686-w64-mingw32-objdump -h "${library}" OUTPUT_VARIABLE headers COMMAND_ERROR_IS_FATAL ANY)
  string(REGEX MATCHALL "\\.eh_frame\\$[^ ]+" sections "${headers}")
  if(NOT sections)
    message(FATAL_ERROR "${library} has no .eh_frame sections of single functions: look at how this compiler keeps exception frames")
  endif()
  list(REMOVE_DUPLICATES sections)
  list(TRANSFORM sections REPLACE ".+" "--rename-section \\0=.eh_frame,alloc,load,readonly,data,contents\n")
  string(CONCAT renames ${sections})
  file(SHA256 "${library}" digest)
  string(SUBSTRING "${digest}" 0 12 digest)
  set(folder "${CMAKE_BINARY_DIR}/runtime/${digest}")
  file(WRITE "${folder}/renames.txt" "${renames}")
  execute_process(COMMAND i686-w64-mingw32-objcopy -D "@${folder}/renames.txt" "${library}" "${folder}/libstdc++.a"
    COMMAND_ERROR_IS_FATAL ANY)
  add_link_options(-nostdlib++)
  set(CRV_CXX_LIBRARY runtime/${digest}/libstdc++.a)  # relative to the build tree, whose path must not get into a program database
else()
  add_link_options(-static-libstdc++)
  set(CRV_CXX_LIBRARY -lstdc++)
endif()
set(CMAKE_CXX_STANDARD_LIBRARIES "${CRV_CXX_LIBRARY} -lwinpthread ${CMAKE_CXX_STANDARD_LIBRARIES}")

# Boost's headers alone: the machine's own include folder would bring glibc's headers with it.
set(CRV_BOOST_INCLUDE "${CMAKE_BINARY_DIR}/boost-include")
file(MAKE_DIRECTORY "${CRV_BOOST_INCLUDE}")
if(NOT EXISTS "${CRV_BOOST_INCLUDE}/boost")
  file(CREATE_LINK /usr/include/boost "${CRV_BOOST_INCLUDE}/boost" SYMBOLIC)
endif()
add_library(crv_boost INTERFACE)
target_include_directories(crv_boost SYSTEM INTERFACE "${CRV_BOOST_INCLUDE}")

# The runtime DLL that every image of ours imports: the one of the compiler's other thread model, which needs neither
# libwinpthread-1.dll nor, as that one does, a function that Windows XP lacks. Two thirds of it are
# debug sections, which no reader of program databases understands.
set(runtime /usr/lib/gcc/i686-w64-mingw32/12-win32/libgcc_s_dw2-1.dll)
set(CRV_RUNTIME_DLLS "${CMAKE_BINARY_DIR}/runtime/libgcc_s_dw2-1.dll")
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${runtime}")
file(MAKE_DIRECTORY "${CMAKE_BINARY_DIR}/runtime")
execute_process(COMMAND "${CRV_STRIP}" -o "${CRV_RUNTIME_DLLS}" "${runtime}" COMMAND_ERROR_IS_FATAL ANY)

# crv_product_library(NAME SOURCES... LINK libs...): one folder of the product as a static library.
function(crv_product_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINK" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_include_directories(${name} PUBLIC "${CMAKE_SOURCE_DIR}/src")
  target_compile_definitions(${name} PRIVATE _WIN32_WINNT=${CRV_OLDEST_WINDOWS} WINVER=${CRV_OLDEST_WINDOWS})
  target_link_libraries(${name} PUBLIC ${ARG_LINK})
endfunction()

# crv_copy_beside(target folder files...): copies files into a folder of the build tree as part of ALL.
function(crv_copy_beside target folder)
  set(stamps)
  foreach(file IN LISTS ARGN)
    get_filename_component(leaf "${file}" NAME)
    add_custom_command(OUTPUT "${folder}/${leaf}"
      COMMAND "${CMAKE_COMMAND}" -E make_directory "${folder}"
      COMMAND "${CMAKE_COMMAND}" -E copy "${file}" "${folder}/${leaf}"
      DEPENDS "${file}")
    list(APPEND stamps "${folder}/${leaf}")
  endforeach()
  add_custom_target(${target} ALL DEPENDS ${stamps})
endfunction()
