# The inter-process converters and requests speak D-Bus; their headers use Qt DBus types.
target_link_libraries(VessanUtilities PUBLIC Qt6::DBus)
