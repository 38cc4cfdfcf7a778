// vkmetad: a metadata companion service on the session bus.
#include "VKMetadataServiceTool.h"

int main(int argc, char **argv)
{
    return VKRunApplicationWithDelegateClass<VKMetadataServiceTool>(argc, argv);
}
