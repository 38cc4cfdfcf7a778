# The number formats read texts with the lenient number reader of the Application folder.
if(NOT "Application" IN_LIST VK_ENABLED_SUBSYSTEMS)
    message(FATAL_ERROR "The Interface subsystem needs the Application subsystem (VKLenientNumber); "
                        "add Application to VK_SUBSYSTEMS")
endif()
