# Volume labels and device properties of the volume classes.
target_link_libraries(VessanUtilities PRIVATE PkgConfig::Blkid PkgConfig::Udev)
