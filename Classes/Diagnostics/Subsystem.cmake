# Report uploads go through Qt Network.
target_link_libraries(VessanUtilities PRIVATE Qt6::Network)
