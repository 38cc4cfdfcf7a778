# Report uploads go through Qt Network; the reporters' windows are widgets loaded from .ui files;
# their archives are written with libzip.
target_link_libraries(VessanUtilities PRIVATE Qt6::Network Qt6::Widgets Qt6::UiTools PkgConfig::Zip)
# The model translation table of the system profile and the reporters' window descriptions.
qt_add_resources(VessanUtilities "vk_diagnostics_resources"
    PREFIX "/VessanUtilities"
    BASE ${CMAKE_CURRENT_SOURCE_DIR}/../resources/Diagnostics
    FILES ${CMAKE_CURRENT_SOURCE_DIR}/../resources/Diagnostics/SUModelTranslation.json
          ${CMAKE_CURRENT_SOURCE_DIR}/../resources/Diagnostics/VKCrashReporter.ui
          ${CMAKE_CURRENT_SOURCE_DIR}/../resources/Diagnostics/VKBugReporter.ui)
# The crash handler walks the crashing thread's stack with libunwind.
target_link_libraries(VessanUtilities PRIVATE PkgConfig::Unwind)
