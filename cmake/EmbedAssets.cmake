# embed_assets(<target> <function> <file>...): a static library <target> whose one function,
#   const kelvane::tools::web::Asset* <function>(std::string_view name);
# finds each file by its base name, its bytes compiled in (tools/web/Asset.h). A file's content
# type comes from its extension. The sources are regenerated when a file changes.
function(embed_assets target function)
  set(output ${CMAKE_CURRENT_BINARY_DIR}/${target}.cpp)
  add_custom_command(
    OUTPUT ${output}
    COMMAND ${CMAKE_COMMAND} -DOUTPUT=${output} -DFUNCTION=${function} "-DFILES=${ARGN}"
            -P ${CMAKE_SOURCE_DIR}/cmake/EmbedAssetsScript.cmake
    DEPENDS ${ARGN} ${CMAKE_SOURCE_DIR}/cmake/EmbedAssetsScript.cmake
    COMMENT "Embedding ${target}"
    VERBATIM)
  add_library(${target} STATIC ${output})
  target_include_directories(${target} PUBLIC ${CMAKE_SOURCE_DIR}/tools/web)
endfunction()
