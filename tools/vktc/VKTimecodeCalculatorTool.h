// The delegate of vktc: evaluates timecode expressions given as arguments, or one per line of
// standard input, with one calculator, and prints one result line per expression.
#pragma once

#include "Application/VKApplication.h"
#include "Timecode/VKCalc.h"

#include <cstdio>

class VKTimecodeCalculatorTool : public VKApplicationDelegate
{
public:
    static std::shared_ptr<VKApplicationConfiguration> applicationConfiguration();

    void application(VKApplication &application,
                     const std::shared_ptr<VKApplicationArguments> &arguments) override;

private:
    struct Settings
    {
        VKDisplayMode displayMode = VDCalcTime;
        VKCalcEvaluationOptions evaluation = VKCalcPreservingTime;
        bool beautify = false;
    };

    // Prints the result of one expression; answers false when it does not evaluate.
    bool process(VKCalc &calc, const QString &expression, const Settings &settings,
                 bool echoColoured);
    int readStandardInput(VKCalc &calc, const Settings &settings);
};
