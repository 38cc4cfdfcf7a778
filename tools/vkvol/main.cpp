// vkvol: shows what the library knows about the volumes holding paths.
#include "VKVolumeTool.h"

int main(int argc, char **argv)
{
    return VKRunApplicationWithDelegateClass<VKVolumeTool>(argc, argv);
}
