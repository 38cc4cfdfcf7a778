#include "Foundation/VKError.h"
#include "Foundation/VKException.h"
#include "Foundation/VKLogger.h"
#include "VKTestSupport.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

TEST(VKLogger, EntryCarriesModuleContextAndFormattedMessage)
{
    VKLogCapture capture;
    const void *object = reinterpret_cast<const void *>(0x1234abcdULL);
    VKLogger::error({"VKCalc", "-[VKCalc setFrameRate:drop:]", object},
                    "Unknown framerate: %f this message will only be logged once", 12.5);
    VKLogger::info({"VKFileSequence", "+[VKFileSequence sequencesWithFiles:]", nullptr},
                   "%@ files", 3);
    const QList<VKLogEntry> entries = capture.entries();
    ASSERT_EQ(entries.size(), 2);
    // The line holds level, module, function, class, pointer and message.
    EXPECT_EQ(entries[0].line(),
              "error VessanUtilities -[VKCalc setFrameRate:drop:] VKCalc 0x1234abcd: "
              "Unknown framerate: 12.500000 this message will only be logged once");
    EXPECT_EQ(entries[0].context(),
              (QVariantMap{{"class", "VKCalc"},
                           {"prettyFunctionOutput", "-[VKCalc setFrameRate:drop:]"},
                           {"pointer", "0x1234abcd"}}));
    EXPECT_EQ(entries[1].line(), "info VessanUtilities +[VKFileSequence sequencesWithFiles:] "
                                 "VKFileSequence 0x0: 3 files");
    EXPECT_EQ(entries[1].level, VKLogLevel::Info);
    EXPECT_EQ(VKLogLevelName(VKLogLevel::Info), QStringLiteral("info"));
}

TEST(VKLogger, ConcurrentWritersLoseNothing)
{
    VKLogCapture capture;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < 500; ++i)
                VKLogger::info({"T", "-[T run]", nullptr}, "%d-%d", t, i);
        });
    }
    for (auto &t : threads)
        t.join();
    const QStringList messages = capture.messages();
    EXPECT_EQ(messages.size(), 2000);
    EXPECT_TRUE(messages.contains(QStringLiteral("3-499")));
}

TEST(VKError, DomainCodeAndDescriptions)
{
    EXPECT_EQ(VQErrorDomainVessanUtilities, QStringLiteral("VQErrorDomainVessanUtilities"));
    const QString text =
        "Could not get filesystem statistics for file at path /x. File does not exist.";
    const VKError e = VKError::errorWithDescription(VQErrorDomainVessanUtilities, 0, text);
    EXPECT_EQ(e.localizedDescription(), text);
    EXPECT_EQ(e.userInfo().value("NSLocalizedDescription").toString(), text);
    EXPECT_EQ(e.description(), "Error Domain=VQErrorDomainVessanUtilities Code=0 \"" + text + "\"");
    const VKError bare("Vessan Error Domain", 7);
    EXPECT_EQ(bare.localizedDescription(),
              u"The operation couldn\u2019t be completed. (Vessan Error Domain error 7.)"_qs);
    EXPECT_TRUE(VKError().isNull());
    EXPECT_FALSE(bare.isNull());
    VKError out;
    VKError::fill(&out, bare);
    VKError::fill(nullptr, bare);
    EXPECT_EQ(out, bare);
}

TEST(VKException, NamesReasonAndWhat)
{
    EXPECT_EQ(VKInvalidArgumentException, QStringLiteral("NSInvalidArgumentException"));
    EXPECT_EQ(VKInternalInconsistencyException, QStringLiteral("NSInternalInconsistencyException"));
    EXPECT_EQ(VKRangeException, QStringLiteral("NSRangeException"));
    EXPECT_EQ(VKUndefinedKeyException, QStringLiteral("NSUnknownKeyException"));
    EXPECT_EQ(VKUnsupportedParameter, QStringLiteral("VKUnsupportedParameter"));
    EXPECT_EQ(vkRaisedBy([] {
                  VKException::raise(VKInvalidArgumentException,
                                     "number of variable arguments must be a multiple of %d", 4);
              }),
              "NSInvalidArgumentException|number of variable arguments must be a multiple of 4");
    const std::exception &e =
        VKException(VKUnsupportedParameter, "Drop frames are not supported by VKTimecode yet");
    EXPECT_STREQ(e.what(),
                 "VKUnsupportedParameter: Drop frames are not supported by VKTimecode yet");
}
