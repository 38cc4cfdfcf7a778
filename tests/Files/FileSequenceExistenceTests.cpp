#include "Files/VKFileSequenceExistence.h"

#include "VKTestSupport.h"

#include <QFile>

#include <gtest/gtest.h>

#include <unistd.h>

using E = VKFileSequenceExistence;

namespace {

// A folder with members 1 to 5 of c_####.dpx, except 3, and some neighbours that are not
// members: wrong padding, wrong extension, a folder named like a member.
class SequenceFolder : public testing::Test
{
protected:
    SequenceFolder()
    {
        for (const char *name : {"c_0001.dpx", "c_0002.dpx", "c_0004.dpx", "c_0005.dpx", "c_06.dpx",
                                 "c_0007.tif", "c_10000.dpx", ".c_0008.dpx"})
            dir.writeFile(name);
        dir.makeDir("c_0009.dpx");
    }
    QString id(const QString &name) const { return dir.path() + "/" + name; }

    VKTempDir dir;
};

} // namespace

TEST_F(SequenceFolder, CompletePartialAndNone)
{
    EXPECT_TRUE(E::completeFileSequenceExistsWithIdentifier(id("c_1-2####.dpx")));
    EXPECT_TRUE(E::fileSequencePartExistsWithIdentifier(id("c_1-2####.dpx")));
    EXPECT_FALSE(E::completeFileSequenceExistsWithIdentifier(id("c_1-5####.dpx")));
    EXPECT_TRUE(E::fileSequencePartExistsWithIdentifier(id("c_1-5####.dpx")));
    EXPECT_FALSE(E::fileSequencePartExistsWithIdentifier(id("c_3-3####.dpx")));
    EXPECT_FALSE(E::completeFileSequenceExistsWithIdentifier(id("c_3-3####.dpx")));
    // Padding and postfix must match exactly; "padding" is a minimum, so 10000 fits #### too.
    EXPECT_FALSE(E::fileSequencePartExistsWithIdentifier(id("c_6-7####.dpx")));
    EXPECT_TRUE(E::completeFileSequenceExistsWithIdentifier(id("c_6-6##.dpx")));
    EXPECT_TRUE(E::completeFileSequenceExistsWithIdentifier(id("c_10000-10000####.dpx")));
    // Any entry counts, hidden files and folders included.
    EXPECT_TRUE(E::completeFileSequenceExistsWithIdentifier(id(".c_8-8####.dpx")));
    EXPECT_TRUE(E::completeFileSequenceExistsWithIdentifier(id("c_9-9####.dpx")));
}

TEST_F(SequenceFolder, HugeRangesAreAnsweredFromTheListing)
{
    // Far more members than the folder has names: answered without generating them.
    EXPECT_TRUE(E::fileSequencePartExistsWithIdentifier(id("c_0-9000000000000000000####.dpx")));
    EXPECT_FALSE(
        E::completeFileSequenceExistsWithIdentifier(id("c_0-9000000000000000000####.dpx")));
    EXPECT_FALSE(
        E::fileSequencePartExistsWithIdentifier(id("c_10001-9000000000000000000####.dpx")));
    const auto presence =
        E::presenceOfFileSequenceWithIdentifier(id("c_2-9000000000000000000####.dpx"));
    ASSERT_TRUE(presence);
    EXPECT_EQ(presence->state, VKFileSequencePresence::Partial);
    EXPECT_EQ(presence->existingFiles, 5u); // 2, 4, 5, 9 (a folder) and 10000
    EXPECT_EQ(presence->numberOfFiles, 8999999999999999999u);
}

TEST_F(SequenceFolder, MissingOrUnlistableFoldersAnswerNo)
{
    EXPECT_FALSE(E::completeFileSequenceExistsWithIdentifier(id("nowhere/c_1-2####.dpx")));
    EXPECT_FALSE(E::fileSequencePartExistsWithIdentifier(id("nowhere/c_1-2####.dpx")));
    // A "folder" that is a file cannot be listed.
    EXPECT_FALSE(E::completeFileSequenceExistsWithIdentifier(id("c_0001.dpx/c_1-2####.dpx")));
    EXPECT_FALSE(E::fileSequencePartExistsWithIdentifier(id("c_0001.dpx/c_1-2####.dpx")));
    // No folder at all in the identifier: nothing exists at "".
    EXPECT_FALSE(E::completeFileSequenceExistsWithIdentifier("c_1-2####.dpx"));
    if (::geteuid() != 0) { // permissions do not stop the super-user
        const QString locked = dir.makeDir("locked");
        dir.writeFile("locked/c_0001.dpx");
        QFile::setPermissions(locked, QFile::ExeOwner);
        EXPECT_FALSE(E::completeFileSequenceExistsWithIdentifier(locked + "/c_1-1####.dpx"));
        EXPECT_FALSE(E::fileSequencePartExistsWithIdentifier(locked + "/c_1-1####.dpx"));
        VKError error;
        EXPECT_FALSE(E::presenceOfFileSequenceWithIdentifier(locked + "/c_1-1####.dpx", &error));
        EXPECT_FALSE(error.isNull());
        QFile::setPermissions(locked, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }
}

TEST_F(SequenceFolder, AnIdentifierThatDoesNotParseNamesNoMembers)
{
    // No members: complete holds trivially, part never does.
    EXPECT_TRUE(E::completeFileSequenceExistsWithIdentifier(id("c_0001.dpx")));
    EXPECT_FALSE(E::fileSequencePartExistsWithIdentifier(id("c_0001.dpx")));
    VKError error;
    EXPECT_FALSE(E::presenceOfFileSequenceWithIdentifier(id("c_0001.dpx"), &error));
    EXPECT_TRUE(error.localizedDescription().contains("c_0001.dpx"));
}

TEST_F(SequenceFolder, PresenceCountsMembers)
{
    const struct
    {
        const char *name;
        const char *state;
        quint64 existing, count;
    } cases[] = {{"c_4-5####.dpx", "complete", 2, 2},
                 {"c_1-5####.dpx", "partial", 4, 5},
                 {"nowhere/c_1-5####.dpx", "missing", 0, 5}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const auto presence = E::presenceOfFileSequenceWithIdentifier(id(c.name));
        ASSERT_TRUE(presence);
        EXPECT_EQ(presence->stateName(), QString::fromLatin1(c.state));
        EXPECT_EQ(presence->existingFiles, c.existing);
        EXPECT_EQ(presence->numberOfFiles, c.count);
    }
}
