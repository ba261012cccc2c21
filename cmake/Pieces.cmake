# Gathers sources into pieces of up to seven files, which are compiled at once: most of the time of a file goes
# into the headers that all of them read.  A piece holds files of one folder, so the names of unnamed namespaces
# must differ within a folder; files named behind ALONE, which share names with others or take long enough, stay
# by themselves.  The presets do so; -DTALORA_PIECES=OFF compiles every file alone, which is quicker after a
# change of one, and needed by tools that look at one.
#
# The pieces name their files from `root`, which has to be a folder for includes.
function(talora_pieces result root)
    cmake_parse_arguments(PARSE_ARGV 2 arg "" "" "SOURCES;ALONE")
    if(NOT TALORA_PIECES)
        set(${result} ${arg_SOURCES} PARENT_SCOPE)
        return()
    endif()
    set(compiled "")
    set(pieces "")
    foreach(source IN LISTS arg_SOURCES)
        cmake_path(GET source FILENAME name)
        if(name IN_LIST arg_ALONE)
            list(APPEND compiled "${source}")
            continue()
        endif()
        cmake_path(RELATIVE_PATH source BASE_DIRECTORY "${root}" OUTPUT_VARIABLE place)
        cmake_path(GET place PARENT_PATH folder)
        string(MAKE_C_IDENTIFIER "In_${folder}" folder)
        math(EXPR count_${folder} "0${count_${folder}} + 1")
        math(EXPR number "(${count_${folder}} - 1) / 7")
        set(piece "${folder}_${number}")
        list(APPEND pieces "${piece}")
        string(APPEND text_${piece} "#include \"${place}\"\n")
    endforeach()
    list(REMOVE_DUPLICATES pieces)
    foreach(piece IN LISTS pieces)
        set(file "${CMAKE_CURRENT_BINARY_DIR}/Pieces/${piece}.cpp")
        file(CONFIGURE OUTPUT "${file}" CONTENT "${text_${piece}}" @ONLY)
        list(APPEND compiled "${file}")
    endforeach()
    set(${result} ${compiled} PARENT_SCOPE)
endfunction()
