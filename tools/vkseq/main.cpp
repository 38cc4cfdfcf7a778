// vkseq: lists the numbered file sequences of folders.
#include "VKSequenceListTool.h"

int main(int argc, char **argv)
{
    return VKRunApplicationWithDelegateClass<VKSequenceListTool>(argc, argv);
}
