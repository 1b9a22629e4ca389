# stage_embed_page(<target> <folder>): writes the source that holds every file of the folder as it is, and adds it to the target.
# A file that changes is taken in anew, and so are those that are added.
function(stage_embed_page target folder)
    file(GLOB_RECURSE names CONFIGURE_DEPENDS RELATIVE ${folder} ${folder}/*)
    list(SORT names)
    set(source ${CMAKE_CURRENT_BINARY_DIR}/embedded_files.cpp)
    set(data "")
    set(declarations "")
    set(rows "")
    set(paths "")
    set(index 0)
    foreach(name ${names})
        set(path ${folder}/${name})
        list(APPEND paths ${path})
        string(APPEND data "asm(R\"(\n.section .rodata\n.hidden stage_page_${index}\n.hidden stage_page_${index}_end\n"
                           ".globl stage_page_${index}\n.globl stage_page_${index}_end\nstage_page_${index}:\n"
                           ".incbin \"${path}\"\nstage_page_${index}_end:\n.byte 0\n.previous\n)\");\n")
        string(APPEND declarations "extern const char stage_page_${index}[];\nextern const char stage_page_${index}_end[];\n")
        string(APPEND rows "        {\"${name}\", {stage_page_${index}, stage_page_${index}_end}},\n")
        math(EXPR index "${index} + 1")
    endforeach()
    file(CONFIGURE OUTPUT ${source} CONTENT
         "// Written by the build from stage/web/page.\n#include \"stage/web/embedded_files.h\"\n\n#include <array>\n\n@data@\nextern \"C\" {\n@declarations@}\n\nnamespace stage {\n\nstd::span<const EmbeddedFile> GetEmbeddedFiles() {\n    static const std::array<EmbeddedFile, @index@> files{{\n@rows@    }};\n    return files;\n}\n\n}  // namespace stage\n"
         @ONLY)
    target_sources(${target} PRIVATE ${source})
    set_source_files_properties(${source} PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON OBJECT_DEPENDS "${paths}")
endfunction()
