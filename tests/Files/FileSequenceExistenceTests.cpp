#include "Files/VKFileSequenceExistence.h"

#include "VKTestSupport.h"

#include <gtest/gtest.h>

using E = VKFileSequenceExistence;

namespace {

// A folder with members 1 to 5 of c_####.dpx, except 3, and some neighbours that are not
// members: wrong padding, wrong extension, a folder named like a member. Ten names in all,
// so that a range of more members is answered from the listing.
class SequenceFolder : public testing::Test
{
protected:
    SequenceFolder()
    {
        for (const char *name : {"c_0001.dpx", "c_0002.dpx", "c_0004.dpx", "c_0005.dpx", "c_06.dpx",
                                 "c_0007.tif", "c_10000.dpx", ".c_0008.dpx", "other/x.dpx"})
            dir.writeFile(name);
        dir.makeDir("c_0009.dpx");
    }
    QString id(const QString &name) const { return dir.path() + "/" + name; }

    VKTempDir dir;
};

} // namespace

TEST_F(SequenceFolder, CompletePartialAndMissing)
{
    const char *complete = "complete", *partial = "partial", *missing = "missing";
    // clang-format off
    const struct { const char *name; bool complete, part; const char *state;
                   quint64 existing, count; } cases[] = {
        {"c_1-2####.dpx", true, true, complete, 2, 2},
        {"c_1-5####.dpx", false, true, partial, 4, 5},
        {"c_3-3####.dpx", false, false, missing, 0, 1},
        // Padding and postfix must match exactly; padding is a minimum, so 10000 fits ####.
        {"c_6-7####.dpx", false, false, missing, 0, 2}, {"c_6-6##.dpx", true, true, complete, 1, 1},
        {"c_10000-10000####.dpx", true, true, complete, 1, 1},
        // Any entry counts, hidden files and folders included.
        {".c_8-8####.dpx", true, true, complete, 1, 1},
        {"c_9-9####.dpx", true, true, complete, 1, 1},
        // More members than names: answered from the listing, first and last members included.
        {"c_5-100####.dpx", false, true, partial, 2, 96}, // 5 and 9 (a folder)
        {"c_9980-10000####.dpx", false, true, partial, 1, 21},
        {"c_10001-9000000000000000000####.dpx", false, false, missing, 0, 8999999999999990000},
        {"c_2-9000000000000000000####.dpx", false, true, partial, 5, 8999999999999999999},
        // A folder that holds no members.
        {"other/c_1-100####.dpx", false, false, missing, 0, 100},
        {"nowhere/c_1-5####.dpx", false, false, missing, 0, 5},
    };
    // clang-format on
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(E::completeFileSequenceExistsWithIdentifier(id(c.name)), c.complete);
        EXPECT_EQ(E::fileSequencePartExistsWithIdentifier(id(c.name)), c.part);
        const auto presence = E::presenceOfFileSequenceWithIdentifier(id(c.name));
        ASSERT_TRUE(presence);
        EXPECT_EQ(presence->stateName(), QString::fromLatin1(c.state));
        EXPECT_EQ(presence->existingFiles, c.existing);
        EXPECT_EQ(presence->numberOfFiles, c.count);
    }
}

TEST_F(SequenceFolder, UnlistableFoldersAndIdentifiersThatDoNotParse)
{
    // A "folder" that is a file cannot be listed: nothing exists, and presence says why. Without
    // a folder nothing exists at "".
    VKError error;
    for (const QString &identifier : {id("c_0001.dpx/c_1-2####.dpx"), QString("c_1-2####.dpx")}) {
        SCOPED_TRACE(identifier.toStdString());
        EXPECT_FALSE(E::completeFileSequenceExistsWithIdentifier(identifier));
        EXPECT_FALSE(E::fileSequencePartExistsWithIdentifier(identifier));
    }
    EXPECT_FALSE(E::presenceOfFileSequenceWithIdentifier(id("c_0001.dpx/c_1-2####.dpx"), &error));
    EXPECT_FALSE(error.isNull());
    // No members: complete holds trivially, part never does, presence says why.
    EXPECT_TRUE(E::completeFileSequenceExistsWithIdentifier(id("c_0001.dpx")));
    EXPECT_FALSE(E::fileSequencePartExistsWithIdentifier(id("c_0001.dpx")));
    EXPECT_FALSE(E::presenceOfFileSequenceWithIdentifier(id("c_0001.dpx"), &error));
    EXPECT_EQ(error.localizedDescription(),
              QString::fromUtf8("“%1” is not a file sequence identifier.").arg(id("c_0001.dpx")));
}
