# The inter-process converters and requests speak D-Bus; their headers use Qt DBus types.
target_link_libraries(VessanUtilities PUBLIC Qt6::DBus)
# Action dispatch works on Qt Widgets' actions and focus; responders find commands through
# Qt's meta-object system, so the library's QObject classes go through moc.
target_link_libraries(VessanUtilities PUBLIC Qt6::Widgets)
set_target_properties(VessanUtilities PROPERTIES AUTOMOC ON)
