// Feeds arbitrary bytes to the keyed unarchiver, with an archivable class that reads every kind
// of value. Whatever decodes must archive again, and that archive must decode and archive to the
// very same bytes (identity, cycles and values all survive a round trip).
#include "Foundation/VKClassRegistry.h"
#include "Foundation/VKCoding.h"
#include "Foundation/VKKeyedArchiver.h"
#include "Foundation/VKKeyedUnarchiver.h"

#include <cstdint>
#include <cstdlib>
#include <vector>

namespace {

class FuzzNode;
// Every node made in one run, so that cycles between them can be broken before the next.
std::vector<std::weak_ptr<FuzzNode>> g_nodes;

class FuzzNode : public VKCoding
{
    VK_CODING_CLASS(FuzzNode)
public:
    FuzzNode() = default;
    bool flag = false;
    qint32 count = 0;
    qint64 big = 0;
    double ratio = 0;
    QString name;
    QByteArray data;
    QVariantList set;
    QVariant value;
    std::shared_ptr<VKCoding> first;
    std::shared_ptr<FuzzNode> second;

    void encodeWithCoder(VKKeyedArchiver &coder) const override
    {
        coder.encodeBool("flag", flag);
        coder.encodeInteger("count", count);
        coder.encodeInteger("big", big);
        coder.encodeDouble("ratio", ratio);
        coder.encodeString("name", name);
        coder.encodeData("data", data);
        coder.encodeSet("set", set);
        coder.encodeValue("value", value);
        coder.encodeObject("first", first);
        coder.encodeObject("second", second);
    }
    bool initWithCoder(VKKeyedUnarchiver &coder) override
    {
        flag = coder.decodeBool("flag");
        count = coder.decodeInt32("count");
        big = coder.decodeInteger("big");
        ratio = coder.decodeDouble("ratio");
        name = coder.decodeString("name");
        data = coder.decodeData("data");
        set = coder.decodeSet("set");
        value = coder.decodeValue("value");
        first = coder.decodeObject("first");
        second = coder.decodeObjectOfClass<FuzzNode>("second");
        // An object may refuse to be read; "fail" without "flag" never archives again.
        return coder.containsValueForKey("flag") || !coder.containsValueForKey("fail");
    }
};

std::shared_ptr<FuzzNode> makeNode()
{
    auto node = std::make_shared<FuzzNode>();
    g_nodes.push_back(node);
    return node;
}

// The hook makes a node for any class name at all.
std::shared_ptr<VKCoding> hookNode(const QString &, const QStringList &)
{
    return makeNode();
}

void breakCycles()
{
    for (const auto &weak : g_nodes) {
        if (auto node = weak.lock()) {
            node->first.reset();
            node->second.reset();
            node->value.clear();
            node->set.clear();
        }
    }
    g_nodes.clear();
}

} // namespace

static const bool g_registered = VKClassRegistry::registerClass<FuzzNode, VKCoding>(
    QStringLiteral("FuzzNode"), QStringLiteral("VKCoding"), makeNode);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    if (!g_registered)
        std::abort();
    const QByteArray input(reinterpret_cast<const char *>(bytes), static_cast<qsizetype>(size));
    // Half the runs make objects through the hook, half through the registry.
    const bool viaHook = size % 2 == 0;
    const VKKeyedUnarchiver::DecodeHook hook =
        viaHook ? VKKeyedUnarchiver::DecodeHook(hookNode) : VKKeyedUnarchiver::DecodeHook();
    VKError error;
    std::shared_ptr<VKCoding> root =
        VKKeyedUnarchiver::unarchivedObjectWithData(input, &error, hook);
    if (!root) {
        if (error.isNull())
            std::abort(); // a failure always says why
        breakCycles();
        return 0;
    }
    if (!error.isNull())
        std::abort();
    const QByteArray once = VKKeyedArchiver::archivedDataWithRootObject(root, &error);
    if (once.isEmpty())
        std::abort();
    std::shared_ptr<VKCoding> again = VKKeyedUnarchiver::unarchivedObjectWithData(once, &error);
    if (!again)
        std::abort();
    const QByteArray twice = VKKeyedArchiver::archivedDataWithRootObject(again, &error);
    if (twice != once)
        std::abort();
    root.reset();
    again.reset();
    breakCycles();
    return 0;
}
