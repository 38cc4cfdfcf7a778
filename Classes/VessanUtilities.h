// Umbrella header: everything the library offers, for hosts that prefer one include.
#pragma once

// Foundation: the platform layer
#include "Foundation/VKApplicationLifecycle.h"
#include "Foundation/VKAttributedString.h"
#include "Foundation/VKBundle.h"
#include "Foundation/VKClassRegistry.h"
#include "Foundation/VKCoding.h"
#include "Foundation/VKDate.h"
#include "Foundation/VKError.h"
#include "Foundation/VKException.h"
#include "Foundation/VKExport.h"
#include "Foundation/VKFileSystem.h"
#include "Foundation/VKFormat.h"
#include "Foundation/VKHumanReadable.h"
#include "Foundation/VKKeyedArchiver.h"
#include "Foundation/VKKeyedUnarchiver.h"
#include "Foundation/VKLenientNumber.h"
#include "Foundation/VKLogger.h"
#include "Foundation/VKMainLoop.h"
#include "Foundation/VKNotificationCenter.h"
#include "Foundation/VKNumber.h"
#include "Foundation/VKNumericStringCompare.h"
#include "Foundation/VKObservable.h"
#include "Foundation/VKOperationBase.h"
#include "Foundation/VKOperationQueue.h"
#include "Foundation/VKPathString.h"
#include "Foundation/VKPropertyList.h"
#include "Foundation/VKSearchPaths.h"
#include "Foundation/VKStringRanges.h"
#include "Foundation/VKUserDefaults.h"
#include "Foundation/VKValueTransformer.h"
#include "Foundation/VKVersion.h"

// Timecode values, the calculator and its text forms
#include "Timecode/VKCalc.h"
#include "Timecode/VKFrameRate.h"
#include "Timecode/VKTimecode.h"
#include "Timecode/VKTimecodeText.h"

// Files: sequences, sizes and speeds
#include "Files/VKFileSequence.h"
#include "Files/VKFileSequenceExistence.h"
#include "Files/VKFileSize.h"
#include "Files/VKHumanReadableValueTransformers.h"

// Application: the command-line frame, commands along the responder chain
#include "Application/VKActionDispatch.h"
#include "Application/VKActionTarget.h"
#include "Application/VKApplication.h"
#include "Application/VKApplicationArguments.h"
#include "Application/VKApplicationConfiguration.h"
#include "Application/VKApplicationDelegate.h"
#include "Application/VKCommandAction.h"
#include "Application/VKPrint.h"
#include "Application/VKResponder.h"

// Application: extension roles and user-defaults enumerations
#include "Application/VKEnum.h"
#include "Application/VKEnumElement.h"
#include "Application/VKExtensionRegistry.h"

// Diagnostics: report transport, log readers, system profile
#include "Diagnostics/VKCrashLogReader.h"
#include "Diagnostics/VKCrashReportReader.h"
#include "Diagnostics/VKFileCreationDate.h"
#include "Diagnostics/VKLogReader.h"
#include "Diagnostics/VKReporter.h"
#include "Diagnostics/VKRunLogReader.h"
#include "Diagnostics/VKSystemInfo.h"
#include "Diagnostics/VKSystemLogReader.h"
#include "Diagnostics/VKSystemProfiler.h"
#include "Diagnostics/VKURLConnection.h"

// Colour triples and colour value transformers
#include "Color/VKColorValueTransformers.h"
#include "Color/VKTriple.h"

// Profiler
#include "Timing/VQTimeEvent.h"
#include "Timing/VQTimeRecorder.h"
#include "Timing/VQTiming.h"

// Display value transformers
#include "Interface/VKDisplayValueTransformers.h"
#include "Interface/VKOrderedSet.h"
