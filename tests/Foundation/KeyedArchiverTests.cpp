#include "Foundation/VKClassRegistry.h"
#include "Foundation/VKCoding.h"
#include "Foundation/VKDate.h"
#include "Foundation/VKKeyedArchiver.h"
#include "Foundation/VKKeyedUnarchiver.h"

#include <QDateTime>
#include <QSize>

#include <plist/plist.h>

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>

namespace {

// A node of a test graph: a few scalar fields, a strong link, and values that may hold nodes.
class ArchiveNode : public VKCoding
{
    VK_CODING_CLASS(ArchiveNode)
public:
    QString name;
    qint64 number = 0;
    std::shared_ptr<ArchiveNode> next;
    QVariant payload;

    void encodeWithCoder(VKKeyedArchiver &coder) const override
    {
        coder.encodeString("name", name);
        coder.encodeInteger("number", number);
        coder.encodeObject("next", next);
        coder.encodeValue("payload", payload);
    }
    bool initWithCoder(VKKeyedUnarchiver &coder) override
    {
        name = coder.decodeString("name");
        number = coder.decodeInteger("number");
        next = coder.decodeObjectOfClass<ArchiveNode>("next");
        payload = coder.decodeValue("payload");
        return true;
    }
};
VK_REGISTER_CLASS(ArchiveNode, VKCoding)

// Names the classes its child needs before reading the child, as filter graphs do to get
// their plug-ins loaded first.
class ArchiveLoader : public VKCoding
{
    VK_CODING_CLASS(ArchiveLoader)
public:
    static inline std::function<void(const QVariantList &)> needClasses;
    QStringList classNames;
    std::shared_ptr<VKCoding> child;

    void encodeWithCoder(VKKeyedArchiver &coder) const override
    {
        coder.encodeSet("classNames", QVariant(classNames).toList());
        coder.encodeObject("child", child);
    }
    bool initWithCoder(VKKeyedUnarchiver &coder) override
    {
        const QVariantList names = coder.decodeSet("classNames");
        if (needClasses)
            needClasses(names);
        child = coder.decodeObject("child");
        return true;
    }
};
VK_REGISTER_CLASS(ArchiveLoader, VKCoding)

// Registered only while a test needs it.
class LateNode : public ArchiveNode
{
    VK_CODING_CLASS(LateNode)
};

// Names itself as told, an empty name included.
class NamedNode : public ArchiveNode
{
public:
    QString className;
    QString classNameForCoder() const override { return className; }
};

// Registered, but not archivable.
struct NotCoding
{
};
VK_REGISTER_ROOT_CLASS(NotCoding)

std::shared_ptr<ArchiveNode> node(const QString &name, qint64 number = 0)
{
    auto n = std::make_shared<ArchiveNode>();
    n->name = name;
    n->number = number;
    return n;
}

QByteArray archive(const std::shared_ptr<VKCoding> &root)
{
    VKError error;
    const QByteArray data = VKKeyedArchiver::archivedDataWithRootObject(root, &error);
    EXPECT_TRUE(error.isNull()) << error.description().toStdString();
    return data;
}

// Breaks the strong links of a decoded graph so that cycles do not leak.
void unlink(const std::shared_ptr<ArchiveNode> &start)
{
    for (auto n = start; n;) {
        n->payload.clear();
        n = std::exchange(n->next, nullptr);
    }
}

// Edits an archive as a property list and writes it back, to make damaged archives.
QByteArray edited(const QByteArray &data, const std::function<void(plist_t)> &edit)
{
    plist_t root = nullptr;
    plist_from_bin(data.constData(), static_cast<uint32_t>(data.size()), &root);
    edit(root);
    char *bytes = nullptr;
    uint32_t length = 0;
    plist_to_bin(root, &bytes, &length);
    QByteArray result(bytes, length);
    plist_to_bin_free(bytes);
    plist_free(root);
    return result;
}

plist_t objectsOf(plist_t root)
{
    return plist_dict_get_item(root, "$objects");
}

// The table index of the entry whose "name" reference leads to the string `name`.
uint32_t indexOfNode(plist_t root, const char *name)
{
    plist_t objects = objectsOf(root);
    for (uint32_t i = 0; i < plist_array_get_size(objects); ++i) {
        plist_t entry = plist_array_get_item(objects, i);
        plist_t ref =
            plist_get_node_type(entry) == PLIST_DICT ? plist_dict_get_item(entry, "name") : nullptr;
        if (!ref)
            continue;
        uint64_t uid = 0;
        plist_get_uid_val(ref, &uid);
        if (plist_string_val_compare(plist_array_get_item(objects, uint32_t(uid)), name) == 0)
            return i;
    }
    return 0;
}

plist_t entryOf(plist_t root, const char *name)
{
    return plist_array_get_item(objectsOf(root), indexOfNode(root, name));
}

} // namespace

// Shared with the property-list tests of this suite.
// A binary property list of `levels` arrays, each holding the next; with `loop` the last holds
// the first. Written by hand: the parser itself must never see such a file.
QByteArray nestedArrays(uint32_t levels, bool loop)
{
    QByteArray bytes("bplist00");
    QList<uint32_t> offsets;
    auto bigEndian = [&](quint64 value, int width) {
        for (int i = width - 1; i >= 0; --i)
            bytes.append(char(value >> (8 * i)));
    };
    for (uint32_t i = 0; i < levels; ++i) {
        offsets.append(uint32_t(bytes.size()));
        bytes.append(char(0xA1));
        bigEndian(i + 1 < levels ? i + 1 : (loop ? 0 : i + 1), 4);
    }
    offsets.append(uint32_t(bytes.size()));
    bytes.append(char(0xA0));
    const quint64 table = quint64(bytes.size());
    for (uint32_t offset : offsets)
        bigEndian(offset, 4);
    bytes.append(QByteArray(6, '\0'));
    bytes.append(char(4)); // offset size
    bytes.append(char(4)); // reference size
    bigEndian(quint64(offsets.size()), 8);
    bigEndian(0, 8);
    bigEndian(table, 8);
    return bytes;
}

// Objects met again, through links, lists and maps, and around cycles, decode to one object.
TEST(KeyedArchiver, SharedObjectsAndCyclesDecodeToTheSameGraph)
{
    for (const int length : {1, 2, 5}) {
        SCOPED_TRACE(length);
        std::vector<std::shared_ptr<ArchiveNode>> ring;
        for (int i = 0; i < length; ++i)
            ring.push_back(node(QString::number(i), i));
        for (int i = 0; i < length; ++i)
            ring[i]->next = ring[(i + 1) % length];
        // The payload refers back into the ring, through values.
        const QVariant last = VKCoding::variantWithObject(ring.back());
        ring[0]->payload = QVariantList{last, QVariantMap{{"again", last}}};

        auto decoded = VKKeyedUnarchiver::unarchivedObjectOfClass<ArchiveNode>(archive(ring[0]));
        unlink(ring[0]);
        ASSERT_TRUE(decoded);
        auto walk = decoded;
        for (int i = 0; i < length; ++i) {
            ASSERT_TRUE(walk);
            EXPECT_EQ(walk->number, i);
            if (i == length - 1) {
                const QVariantList payload = decoded->payload.toList();
                EXPECT_EQ(VKCoding::objectFromVariant(payload.value(0)), walk);
                EXPECT_EQ(VKCoding::objectFromVariant(payload.value(1).toMap().value("again")),
                          walk);
            }
            walk = walk->next;
        }
        EXPECT_EQ(walk, decoded) << "the ring closes on the first node";
        unlink(decoded);
    }
}

TEST(KeyedArchiver, ValuesRoundTrip)
{
    const QDateTime date = VKDate::dateWithTimeIntervalSinceReferenceDate(-12.5);
    // nil, true, the integer extremes, -1, a double, infinity, strings, data with zero bytes,
    // empty data, a date before the reference date, a nested list and a map with odd keys.
    // clang-format off
    const QVariant values[] = {
        QVariant(), true, qlonglong(std::numeric_limits<qint64>::max()),
        qlonglong(std::numeric_limits<qint64>::min()), qlonglong(-1), -0.1,
        std::numeric_limits<double>::infinity(), QString(""), QString::fromUtf8("Grüße 🎬 ‘1:30:00’"),
        QByteArray("\0\1\0\xff", 4), QByteArray(""), date,
        QVariantList{1LL, QVariantList{QString("a"), QVariant()}, 2.5},
        QVariantMap{{"$class", 1LL}, {"", QString("empty key")}, {"a/b", QVariantList{}}}};
    // clang-format on
    for (const QVariant &value : values) {
        SCOPED_TRACE(testing::Message() << "value " << &value - values);
        auto root = node("values");
        root->payload = value;
        auto decoded = VKKeyedUnarchiver::unarchivedObjectOfClass<ArchiveNode>(archive(root));
        ASSERT_TRUE(decoded);
        EXPECT_EQ(decoded->payload, value);
        EXPECT_EQ(decoded->payload.typeId(), value.typeId());
    }
}

TEST(KeyedArchiver, TopLevelKeysAndScalars)
{
    VKKeyedArchiver archiver;
    archiver.encodeBool("flag", true);
    archiver.encodeInteger("big", qint64(1) << 40);
    archiver.encodeDouble("ratio", 0.25);
    archiver.encodeString("null", QString());
    archiver.encodeString("empty", QString(""));
    archiver.encodeData("bytes", QByteArray("x\0y", 3));
    archiver.encodeSet("names", {QString("A"), QString("B")});
    archiver.encodeInteger("$version", 3); // a caller's key that looks like the layout's own
    const QByteArray data = archiver.encodedData();

    VKKeyedUnarchiver coder(data);
    EXPECT_TRUE(coder.decodeBool("flag"));
    EXPECT_EQ(coder.decodeInteger("big"), qint64(1) << 40);
    EXPECT_EQ(coder.decodeDouble("ratio"), 0.25);
    EXPECT_EQ(coder.decodeDouble("big"), double(qint64(1) << 40));
    EXPECT_TRUE(coder.decodeString("null").isNull());
    EXPECT_FALSE(coder.decodeString("empty").isNull());
    EXPECT_EQ(coder.decodeData("bytes"), QByteArray("x\0y", 3));
    EXPECT_EQ(coder.decodeSet("names"), (QVariantList{QString("A"), QString("B")}));
    EXPECT_EQ(coder.decodeInteger("$version"), 3);
    EXPECT_FALSE(coder.containsValueForKey("missing"));
    EXPECT_EQ(coder.decodeInteger("missing"), 0);
    EXPECT_FALSE(coder.decodeObject("missing"));
    EXPECT_TRUE(coder.finishDecoding());

    // A wrong type fails the whole decoding, and later reads answer nothing.
    EXPECT_EQ(coder.decodeInt32("big"), 0);
    EXPECT_EQ(coder.error().code(), VKCoderReadCorruptError);
    EXPECT_EQ(coder.error().localizedDescription(),
              "The value for key \"big\" does not fit 32 bits");
    EXPECT_FALSE(coder.decodeBool("flag"));
}

TEST(KeyedArchiver, UnarchivableValuesFailTheArchive)
{
    // A class name the layout reserves for itself cannot be archived either.
    auto reserved = std::make_shared<NamedNode>();
    reserved->className = "$classes";
    const std::pair<QVariant, QString> cases[] = {
        {QVariant::fromValue(QSize(1, 2)), "A value of type QSize cannot be archived"},
        {VKCoding::variantWithObject(std::make_shared<NamedNode>()),
         "An object has no class name to archive"},
        {VKCoding::variantWithObject(reserved), "An object has no class name to archive"}};
    for (const auto &[value, description] : cases) {
        VKKeyedArchiver archiver;
        archiver.encodeValue("value", value);
        VKError error;
        EXPECT_TRUE(archiver.encodedData(&error).isEmpty());
        EXPECT_EQ(error.code(), VKCoderInvalidValueError);
        EXPECT_EQ(error.localizedDescription(), description);
    }
}

TEST(KeyedArchiver, ClassesNamedFirstCanBeLoadedBeforeTheirObjects)
{
    auto late = std::make_shared<LateNode>();
    late->name = "late";
    auto loader = std::make_shared<ArchiveLoader>();
    loader->classNames = {"LateNode"};
    loader->child = late;
    const QByteArray data = archive(loader);

    VKError error;
    ArchiveLoader::needClasses = nullptr;
    EXPECT_FALSE(VKKeyedUnarchiver::unarchivedObjectWithData(data, &error));
    EXPECT_EQ(error.localizedDescription(),
              "Cannot decode an object of class \"LateNode\" for key \"child\": the class is "
              "unknown or not archivable");

    // Registering the class when its name is read is in time for the object.
    QVariantList seen;
    ArchiveLoader::needClasses = [&](const QVariantList &names) {
        seen = names;
        VKClassRegistry::registerClass<LateNode, ArchiveNode>("LateNode", "ArchiveNode");
    };
    auto decoded = VKKeyedUnarchiver::unarchivedObjectOfClass<ArchiveLoader>(data, &error);
    ArchiveLoader::needClasses = nullptr;
    VKClassRegistry::unregisterClass("LateNode");
    ASSERT_TRUE(decoded) << error.description().toStdString();
    EXPECT_EQ(seen, QVariantList{QString("LateNode")});
    auto child = std::dynamic_pointer_cast<LateNode>(decoded->child);
    ASSERT_TRUE(child);
    EXPECT_EQ(child->name, "late");
}

TEST(KeyedArchiver, DecodeHookComesBeforeTheRegistry)
{
    auto root = node("root");
    root->next = node("child");
    QStringList asked;
    auto decoded = VKKeyedUnarchiver::unarchivedObjectOfClass<ArchiveNode>(
        archive(root), nullptr, [&](const QString &name, const QStringList &classes) {
            asked << name + ":" + classes.join(',');
            // The root is made by the hook, the child falls back to the registry.
            return asked.size() == 1 ? std::make_shared<LateNode>() : nullptr;
        });
    ASSERT_TRUE(decoded);
    EXPECT_EQ(asked, QStringList(
                         {"ArchiveNode:ArchiveNode,VKCoding", "ArchiveNode:ArchiveNode,VKCoding"}));
    EXPECT_TRUE(std::dynamic_pointer_cast<LateNode>(decoded));
    EXPECT_FALSE(std::dynamic_pointer_cast<LateNode>(decoded->next));
    EXPECT_EQ(decoded->next->name, "child");
}

TEST(KeyedArchiver, RepeatedCollectionsAreReadOnce)
{
    // Forty levels, each a list that names the next level twice: 2^40 members if expanded.
    // Archived lists are not shared, so write one member per level and double it by hand.
    QVariant level = QString("bottom");
    for (int i = 0; i < 40; ++i)
        level = QVariantList{level};
    auto root = node("deep");
    root->payload = level;
    const QByteArray data = edited(archive(root), [](plist_t archive) {
        plist_t objects = objectsOf(archive);
        for (uint32_t i = 0; i < plist_array_get_size(objects); ++i) {
            plist_t entry = plist_array_get_item(objects, i);
            plist_t list = plist_get_node_type(entry) == PLIST_DICT
                               ? plist_dict_get_item(entry, "VK.objects")
                               : nullptr;
            if (list)
                plist_array_append_item(list, plist_copy(plist_array_get_item(list, 0)));
        }
    });
    auto decoded = VKKeyedUnarchiver::unarchivedObjectOfClass<ArchiveNode>(data);
    ASSERT_TRUE(decoded);
    QVariant walk = decoded->payload;
    for (int i = 0; i < 40; ++i)
        walk = walk.toList().value(1);
    EXPECT_EQ(walk, QString("bottom"));
}

TEST(KeyedArchiver, HostileArchivesFailWithAnError)
{
    auto root = node("root", 5);
    root->next = node("child");
    root->payload = QVariantList{QString("x")};
    const QByteArray good = archive(root);
    const auto edit = [&](const std::function<void(plist_t)> &change) {
        return edited(good, change);
    };
    const auto setRoot = [&](plist_t value) {
        return edit(
            [=](plist_t a) { plist_dict_set_item(plist_dict_get_item(a, "$top"), "root", value); });
    };
    const auto setObject = [&](uint32_t index, plist_t value) {
        return edit([=](plist_t a) { plist_array_set_item(objectsOf(a), value, index); });
    };
    const auto renameClasses = [&](const char *name) {
        return edit([=](plist_t a) {
            plist_t objects = objectsOf(a);
            for (uint32_t i = 0; i < plist_array_get_size(objects); ++i)
                if (plist_t n = plist_dict_get_item(plist_array_get_item(objects, i), "$classname"))
                    plist_set_string_val(n, name);
        });
    };
    const auto setInChild = [&](const char *key, plist_t value) {
        return edit([=](plist_t a) { plist_dict_set_item(entryOf(a, "child"), key, value); });
    };
    const QString notArchive = "The data is not a keyed archive";
    const auto unusable = [](const char *name) {
        return QStringLiteral(
                   "Cannot decode an object of class \"%1\" for key \"root\": the class is "
                   "unknown or not archivable")
            .arg(name);
    };
    // clang-format off
    const struct { const char *name; QByteArray data; QString description; } cases[] = {
        {"empty", QByteArray(), notArchive}, {"text", QByteArray("bplist00 but not really"), notArchive},
        {"truncated", good.left(good.size() - 9), notArchive},
        {"arrays nested 200000 deep", nestedArrays(200000, false), notArchive},
        {"arrays that contain each other", nestedArrays(3, true), notArchive},
        {"other archiver", edit([](plist_t a) { plist_dict_set_item(a, "$archiver", plist_new_string("X")); }), notArchive},
        {"other version", edit([](plist_t a) { plist_dict_set_item(a, "$version", plist_new_uint(1)); }),
         "The archive's version is not supported"},
        {"no object table", edit([](plist_t a) { plist_dict_remove_item(a, "$objects"); }),
         "The archive has no object table"},
        {"no $null", setObject(0, plist_new_string("nil")), "The archive's object table does not begin with \"$null\""},
        {"root out of range", setRoot(plist_new_uid(1u << 30)), "A reference points outside the archive's object table"},
        {"root is a string", setRoot(plist_new_string("r")), "The value for key \"root\" is not a reference"},
        {"root names $null's string", setObject(1, plist_new_string("s")), "The value for key \"root\" is not an object"},
        {"unknown class", renameClasses("Gone"), unusable("Gone")},
        {"class not archivable", renameClasses("NotCoding"), unusable("NotCoding")},
        {"object without class", setInChild("$class", plist_new_uid(0)), "A class entry of the archive has no name"},
        {"string where an integer goes", setInChild("number", plist_new_string("1")),
         "The value for key \"number\" is not an integer"},
        {"integer where a string goes", setInChild("name", plist_new_uint(1)), "The value for key \"name\" is not a string"},
        // The child's link points at the root's payload list.
        {"collection where an object goes", edit([](plist_t a) {
             plist_dict_set_item(entryOf(a, "child"), "next", plist_copy(plist_dict_get_item(entryOf(a, "root"), "payload")));
         }), "The value for key \"next\" is not an object"},
        {"list that contains itself", edit([](plist_t a) {
             uint64_t uid = 0;
             plist_get_uid_val(plist_dict_get_item(entryOf(a, "root"), "payload"), &uid);
             plist_t list = plist_dict_get_item(plist_array_get_item(objectsOf(a), uint32_t(uid)), "VK.objects");
             plist_array_append_item(list, plist_new_uid(uid));
         }), "The value for key \"payload\" contains itself"},
    };
    // clang-format on
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        VKError error;
        EXPECT_FALSE(VKKeyedUnarchiver::unarchivedObjectWithData(c.data, &error));
        EXPECT_EQ(error.domain(), VQErrorDomainVessanUtilities);
        EXPECT_EQ(error.code(), VKCoderReadCorruptError);
        EXPECT_EQ(error.localizedDescription().toStdString(), c.description.toStdString());
    }
}

TEST(KeyedArchiver, NestingBeyondTheLimitFails)
{
    for (int length : {VKKeyedUnarchiver::maximumDepth, VKKeyedUnarchiver::maximumDepth + 1}) {
        SCOPED_TRACE(length);
        auto head = node("0");
        auto tail = head;
        for (int i = 1; i < length; ++i)
            tail = tail->next = node(QString::number(i));
        const QByteArray data = archive(head);
        unlink(head);
        VKError error;
        auto decoded = VKKeyedUnarchiver::unarchivedObjectOfClass<ArchiveNode>(data, &error);
        EXPECT_EQ(bool(decoded), length == VKKeyedUnarchiver::maximumDepth);
        if (!decoded) {
            EXPECT_EQ(error.localizedDescription(),
                      "Objects are nested deeper than 1000 levels (key \"next\")");
        }
        unlink(decoded);
    }
}

TEST(KeyedArchiver, RootOfAnotherClassFails)
{
    auto loader = std::make_shared<ArchiveLoader>();
    VKError error;
    EXPECT_FALSE(VKKeyedUnarchiver::unarchivedObjectOfClass<ArchiveNode>(archive(loader), &error));
    EXPECT_EQ(error.localizedDescription(),
              "The object for key \"root\" is of the unexpected class \"ArchiveLoader\"");
    EXPECT_FALSE(VKKeyedUnarchiver::unarchivedObjectWithData(archive(nullptr), &error));
    EXPECT_EQ(error.code(), VKCoderValueNotFoundError);
}
