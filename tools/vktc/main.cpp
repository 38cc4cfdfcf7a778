// vktc: the timecode calculator on the command line.
#include "VKTimecodeCalculatorTool.h"

int main(int argc, char **argv)
{
    return VKRunApplicationWithDelegateClass<VKTimecodeCalculatorTool>(argc, argv);
}
