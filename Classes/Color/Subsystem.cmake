# The colour conversions are pinned to the last bit of their float/double arithmetic: no fused
# multiply-add, whatever the compiler's default for the target.
set_source_files_properties(${_vk_sources} PROPERTIES COMPILE_OPTIONS "-ffp-contract=off")
# Filters run on GEGL; babl gives pixel formats and colour spaces.
target_link_libraries(VessanUtilities PRIVATE PkgConfig::Gegl PkgConfig::Babl)
