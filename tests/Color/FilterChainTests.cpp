// The filter graph: building and export rules, equality quirks, texts, values through exported
// keys, evaluation order, archives (good and hostile), and a restore in a fresh process.
#include "Color/VKFilterChainWrapper.h"
#include "Color/VKFilterConnection.h"
#include "Color/VKFilterFactory.h"
#include "Color/VKImage.h"
#include "Color/VKTriple.h"
#include "Foundation/VKKeyedArchiver.h"
#include "Foundation/VKKeyedUnarchiver.h"
#include "Foundation/VKPropertyList.h"
#include "VKTestProcess.h"
#include "VKTestSupport.h"

#include <gtest/gtest.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

namespace {

QStringList g_rendered; // labels of the test filters, in the order their outputs were made

// out = in * inputScale on red, green and blue.
class ChainTestFilter : public VKFilter
{
public:
    explicit ChainTestFilter(const QString &label = {}, double scale = 1)
        : VKFilter(QStringLiteral("ChainTestFilter"))
    {
        declareInputKey("inputImage", {{VKAttributeType, VKAttributeTypeImage}});
        declareInputKey("inputScale", {{VKAttributeType, VKAttributeTypeDouble},
                                       {VKAttributeDefault, 1.0},
                                       {VKAttributeMax, 8.0}});
        declareInputKey("inputLabel", {{VKAttributeType, VKAttributeTypeString}});
        setValueForKey(label, "inputLabel");
        setValueForKey(scale, "inputScale");
    }
    int defaultsSent = 0;
    void setDefaults() override
    {
        ++defaultsSent;
        VKFilter::setDefaults();
    }
    VKImage outputImage() override
    {
        g_rendered.append(inputValue("inputLabel").toString());
        const float scale = inputValue("inputScale").toFloat();
        return inputImage().imageByApplyingPointFunction([=](float *rgba, qint64 count) {
            for (qint64 i = 0; i < count; ++i)
                for (int c = 0; c < 3; ++c)
                    rgba[4 * i + c] *= scale;
        });
    }
};

VK_REGISTER_FILTER(ChainTestFilter, "ChainTestFilter")

std::shared_ptr<ChainTestFilter> testFilter(const QString &label, double scale = 1)
{
    return std::make_shared<ChainTestFilter>(label, scale);
}

// A 2x1 image: (0.25, 0.5, 1, 1) and (0, 0.125, 2, 1). The restoring probe renders it too.
const QList<float> kInput{0.25f, 0.5f, 1.0f, 1.0f, 0.0f, 0.125f, 2.0f, 1.0f};

void setInput(VKFilter &filter)
{
    filter.setValueForKey(QVariant::fromValue(VKImage::imageWithFloatPixels(kInput.data(), 2, 1)),
                          "inputImage");
}

QList<float> render(const VKImage &image)
{
    return image.floatPixels(QRect(0, 0, 2, 1));
}

QString label(const std::shared_ptr<VKFilter> &filter)
{
    if (!filter)
        return QStringLiteral("none");
    if (!filter->inputKeys().contains("inputLabel"))
        return filter->name();
    return filter->valueForKey("inputLabel").toString();
}

// The graph as text: "source.key->target.key" per connection in order, then
// "filter:internal->external" per export, sorted.
QStringList graphOf(const VKFilterChainWrapper &wrapper)
{
    QStringList connections, exports;
    for (const auto &c : wrapper.filterConnections())
        connections.append(label(c->sourceFilter()) + u'.' + c->sourceKey() + "->" +
                           label(c->targetFilter()) + u'.' + c->targetKey());
    for (const auto &c : wrapper.filterExportConnections())
        exports.append(label(c->exportingFilter()) + u':' + c->internalKey() + "->" +
                       c->externalKey());
    exports.sort();
    return connections + exports;
}

QString withoutPointers(QString text)
{
    return text.replace(QRegularExpression("0x[0-9a-f]+"), "0x");
}

QString address(const void *object)
{
    return QString::asprintf("%p", object);
}

} // namespace

// Exports are equal when they differ in their internal key only, or are the same object;
// connections when their filters are the same objects and their keys equal.
TEST(FilterChain, EqualityQuirksOfExportsAndConnections)
{
    auto a = testFilter("a"), b = testFilter("b"), twin = testFilter("a");
    const auto out = [](const std::shared_ptr<VKFilter> &f, const char *in, const char *name) {
        return VKFilterKeyExportConnection::exportConnectionFromFilter(f, in, name);
    };
    const auto link = [](const std::shared_ptr<VKFilter> &s, const std::shared_ptr<VKFilter> &t,
                         const char *targetKey) {
        return VKFilterConnection::connectionFromFilter(s, "outputImage", t, targetKey);
    };
    const auto gain = out(a, "inputScale", "gain"), repeat = out(a, "inputScale", "gain");
    const auto edge = link(a, b, "inputImage"), otherKey = link(a, b, "inputScale"),
               swapped = link(b, a, "inputImage");
    const struct
    {
        const char *name;
        bool equal, expected;
    } cases[] = {
        {"export: same object", gain->isEqual(gain.get()), true},
        {"export: same filter and keys", gain->isEqual(repeat.get()), false},
        {"export: other internal key", gain->isEqual(out(a, "inputLabel", "gain").get()), true},
        {"export: other keys", gain->isEqual(out(a, "inputLabel", "lift").get()), false},
        {"export: other filter", gain->isEqual(out(b, "inputLabel", "gain").get()), false},
        {"connection: same filters and keys", edge->isEqual(link(a, b, "inputImage").get()), true},
        {"connection: equal filter", edge->isEqual(link(twin, b, "inputImage").get()), false},
        {"connection: other target key", edge->isEqual(otherKey.get()), false},
        {"connection: filters swapped", edge->isEqual(swapped.get()), false},
    };
    for (const auto &c : cases)
        EXPECT_EQ(c.equal, c.expected) << c.name;
    // Repeated exports land in one bucket and still both stay in a set; connection hashes
    // ignore keys and direction.
    EXPECT_EQ(gain->hash(), repeat->hash());
    EXPECT_EQ((VKFilterKeyExportConnectionSet{{gain}, {repeat}, {gain}}).size(), 2);
    EXPECT_EQ(QList<size_t>({otherKey->hash(), swapped->hash()}), QList<size_t>(2, edge->hash()));
}

TEST(FilterChain, DescriptionsShowAddressesClassesAndKeys)
{
    auto a = testFilter("a"), b = testFilter("b");
    auto wrapper = std::make_shared<VKFilterChainWrapper>();
    EXPECT_EQ(withoutPointers(wrapper->description()),
              "0x <VKFilterChainWrapper> - connections: (\n), exports: {(\n)}");
    wrapper->connectObject(a, "outputImage", b, "inputImage");
    wrapper->exportKey("inputScale", b, "gain");
    const QString connectionText =
        address(wrapper->filterConnections().first().get()) +
        " <VKFilterConnection> - sourceKey: outputImage sourceFilter: ChainTestFilter, targetKey: "
        "inputImage targetFilter: ChainTestFilter";
    const QString exportText = address(wrapper->filterExportConnections().first().get()) +
                               " <VKFilterKeyExportConnection> - internalKey: inputScale "
                               "externalKey: gain, filter: ChainTestFilter";
    EXPECT_EQ(wrapper->description(),
              address(wrapper.get()) + " <VKFilterChainWrapper> - connections: (\n    " +
                  connectionText + "\n), exports: {(\n    " + exportText + "\n)}");
}

TEST(FilterChain, NilParametersRaise)
{
    auto a = testFilter("a");
    const std::shared_ptr<VKFilter> none;
    VKFilterChainWrapper w;
    const std::pair<const char *, std::function<void()>> cases[] = {
        {"connect: no source", [&] { w.connectObject(none, "k", a, "k"); }},
        {"connect: null source key", [&] { w.connectObject(a, QString(), a, "k"); }},
        {"connect: no target", [&] { w.connectObject(a, "k", none, "k"); }},
        {"connect: null target key", [&] { w.connectObject(a, "k", a, QString()); }},
        {"export: null key", [&] { w.exportKey(QString(), a, "n"); }},
        {"export: no filter", [&] { w.exportKey("k", none, "n"); }},
        {"export: null name", [&] { w.exportKey("k", a, QString()); }},
        {"export keys: no filter", [&] { w.exportKeys({"k"}, none); }},
        {"insert: no existing filter", [&] { w.insertFilter(a, none); }},
        {"export input image: no filter", [&] { w.exportInputImageKeyForFilter(none); }},
        {"export output image: no filter", [&] { w.exportOutputImageKeyForFilter(none); }},
    };
    for (const auto &[name, call] : cases)
        EXPECT_EQ(vkRaisedBy(call), "NSInvalidArgumentException|the parameters must not be nil")
            << name;
    EXPECT_TRUE(w.filterConnections().isEmpty());
    EXPECT_TRUE(w.filterExportConnections().isEmpty());
    // An empty name is a name.
    EXPECT_EQ(vkRaisedBy([&] { w.exportKey("inputScale", a, ""); }), "no exception");
}

// Steps export a key ("f0:inputScale->gain") or concatenate the first N filters ("concat:N");
// then the graph as text, and the output's filter.
TEST(FilterChain, ExportAndConcatenationRules)
{
    const char *firstFiltersKeys = "f0:inputLabel->inputLabel f0:inputScale->inputScale";
    const struct
    {
        const char *name, *steps;
        QString graph;
        const char *output;
    } cases[] = {
        {"first of a name wins", "f0:inputScale->gain f1:inputScale->gain f0:inputLabel->gain",
         "f0:inputScale->gain", "none"},
        {"last output wins", "f0:outputImage->outputImage f1:outputImage->outputImage", "", "f1"},
        {"the output is not an input", "f0:inputImage->outputImage f1:inputImage->inputImage",
         "f1:inputImage->inputImage", "f0"},
        {"one key under two names", "f0:inputScale->gain f0:inputScale->exposure",
         "f0:inputScale->exposure f0:inputScale->gain", "none"},
        {"concatenating none", "concat:0", "", "none"},
        {"concatenating one", "concat:1", firstFiltersKeys, "none"},
        {"concatenating three: the first filter's parameters win", "concat:3",
         QString("f0.outputImage->f1.inputImage f1.outputImage->f2.inputImage ") + firstFiltersKeys,
         "none"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const QList<std::shared_ptr<VKFilter>> filters{testFilter("f0"), testFilter("f1"),
                                                       testFilter("f2")};
        VKFilterChainWrapper w;
        for (const QString &step : QString(c.steps).split(' ')) {
            const QStringList parts = step.split(QRegularExpression(":|->"));
            if (parts[0] == "concat")
                w.concatenateFiltersFromArray(filters.mid(0, parts[1].toInt()));
            else
                w.exportKey(parts[1], filters[parts[0].back().digitValue()], parts[2]);
        }
        EXPECT_EQ(graphOf(w), c.graph.split(' ', Qt::SkipEmptyParts));
        EXPECT_EQ(label(w.outputConnection() ? w.outputConnection()->exportingFilter() : nullptr),
                  c.output);
    }
}

TEST(FilterChain, KeysValuesAndDefaultsGoThroughExports)
{
    auto a = testFilter("a", 3), b = testFilter("b", 5);
    auto w = std::make_shared<VKFilterChainWrapper>();
    w->exportInputImageKeyForFilter(a);
    w->exportKey("inputScale", a, "gain");
    w->exportKey("inputScale", b, "gain2");
    w->exportKey("inputLabel", b, "lift");
    w->exportOutputImageKeyForFilter(b);

    // In no particular order.
    QStringList parameters = w->inputKeys();
    EXPECT_EQ(QSet<QString>(parameters.cbegin(), parameters.cend()),
              QSet<QString>({"gain", "gain2", "inputImage", "lift"}));
    parameters.removeOne("inputImage");
    EXPECT_EQ(w->inputParameterKeys(), parameters) << "in the order of the input keys";

    const QVariantMap attributes = w->customAttributes();
    EXPECT_EQ(attributes.keys(), QStringList({"gain", "gain2", "inputImage", "lift"}));
    EXPECT_EQ(attributes["gain"].toMap()[VKAttributeMax].toDouble(), 8.0);

    w->setValueForKey(0.5, "gain2");
    EXPECT_EQ(b->valueForKey("inputScale").toDouble(), 0.5);
    EXPECT_EQ(w->valueForKey("gain").toDouble(), 3.0);
    // Unknown keys: ignored when set, an exception when read.
    EXPECT_EQ(vkRaisedBy([&] { w->setValueForKey(9.0, "nope"); }), "no exception");
    EXPECT_EQ(vkRaisedBy([&] { (void)w->valueForKey("nope"); }),
              "NSUnknownKeyException|[<VKFilterChainWrapper " + address(w.get()) +
                  "> valueForUndefinedKey:]: this class is not key value coding-compliant for "
                  "the key nope.");

    // One reset per export (a: image and gain; b: gain2 and lift); being the output's filter
    // adds none.
    w->setDefaults();
    EXPECT_EQ(a->defaultsSent, 2);
    EXPECT_EQ(b->defaultsSent, 2);
    EXPECT_EQ(w->valueForKey("gain").toDouble(), 1.0);
}

TEST(FilterChain, EvaluationFollowsConnectionOrderWithinTheGraph)
{
    // x * 2 * 4 * 0.5 on RGB; alpha passes. Downstream first, b is read before a fed it: the
    // first evaluation has nothing to show.
    for (const bool upstreamFirst : {true, false}) {
        SCOPED_TRACE(upstreamFirst);
        auto a = testFilter("a", 2), b = testFilter("b", 4), c = testFilter("c", 0.5);
        VKFilterChainWrapper w;
        if (upstreamFirst) {
            w.concatenateFiltersFromArray({a, b, c});
        } else {
            w.insertFilter(c, b);
            w.insertFilter(b, a);
        }
        w.exportInputImageKeyForFilter(a);
        w.exportOutputImageKeyForFilter(c);
        setInput(w);
        g_rendered.clear();
        const VKImage out = w.outputImage();
        const QStringList order =
            upstreamFirst ? QStringList{"a", "b", "c"} : QStringList{"b", "a", "c"};
        const QList<float> pixels =
            upstreamFirst ? QList<float>{1, 2, 4, 1, 0, 0.5f, 8, 1} : QList<float>{};
        EXPECT_EQ(g_rendered, order);
        EXPECT_EQ(render(out), pixels);
    }

    // A graph that contains its wrapper raises instead. It refers to the wrapper without owning
    // it, so nothing leaks.
    auto w = std::make_shared<VKFilterChainWrapper>();
    auto a = testFilter("a");
    const std::shared_ptr<VKFilter> self(std::shared_ptr<VKFilter>(), w.get());
    w->connectObject(self, "outputImage", a, "inputImage");
    w->exportOutputImageKeyForFilter(a);
    EXPECT_EQ(withoutPointers(vkRaisedBy([&] { (void)w->outputImage(); })),
              "NSInternalInconsistencyException|VKFilterChainWrapper 0x is part of its own filter "
              "graph");
}

namespace {

QByteArray archive(const std::shared_ptr<VKCoding> &root)
{
    VKError error;
    const QByteArray data = VKKeyedArchiver::archivedDataWithRootObject(root, &error);
    EXPECT_TRUE(error.isNull()) << error.localizedDescription();
    return data;
}

// The class name of an object in an archive's table of objects.
QString classOf(const QVariantList &objects, const QVariant &object)
{
    const QVariant ref = object.toMap().value("$class");
    if (!ref.canConvert<VKPropertyListUID>())
        return {};
    return objects.value(qsizetype(ref.value<VKPropertyListUID>().value))
        .toMap()
        .value("$classname")
        .toString();
}

// Sets `key` of every object of `className` to what `value` makes of the table of objects; an
// invalid value removes the key.
QByteArray withValue(const QByteArray &data, const QString &className, const char *key,
                     const std::function<QVariant(const QVariantList &objects)> &value)
{
    QVariantMap root = VKPropertyList::propertyListWithData(data).toMap();
    QVariantList objects = root["$objects"].toList();
    for (QVariant &object : objects) {
        if (classOf(objects, object) != className)
            continue;
        QVariantMap map = object.toMap();
        const QVariant v = value(objects);
        if (v.isValid())
            map[key] = v;
        else
            map.remove(key);
        object = map;
    }
    root["$objects"] = objects;
    return VKPropertyList::dataWithPropertyList(root, VKPropertyListFormat::Binary);
}

} // namespace

TEST(FilterChain, HostileArchivesFailWithAnError)
{
    // a -> b -> c, the image in at a and out of c.
    auto a = testFilter("a"), b = testFilter("b"), c = testFilter("c");
    auto w = std::make_shared<VKFilterChainWrapper>();
    w->concatenateFiltersFromArray({a, b, c});
    w->exportInputImageKeyForFilter(a);
    w->exportOutputImageKeyForFilter(c);
    const QByteArray good = archive(w);

    // A reference to the first object of a class, and the wrapper's to its connections.
    const auto uidOfClass = [](const char *className) {
        return [=](const QVariantList &objects) {
            quint64 i = 0;
            while (i < quint64(objects.size()) && classOf(objects, objects[i]) != className)
                ++i;
            return QVariant::fromValue(VKPropertyListUID{i});
        };
    };
    const auto connectionsOfWrapper = [&](const QVariantList &objects) {
        return objects
            .value(uidOfClass("VKFilterChainWrapper")(objects).value<VKPropertyListUID>().value)
            .toMap()
            .value("filterConnections");
    };
    const auto seven = [](const QVariantList &) { return QVariant(7); };
    const struct
    {
        const char *name;
        QByteArray data;
        QString description;
    } cases[] = {
        {"connections are an object",
         withValue(good, "VKFilterChainWrapper", "filterConnections",
                   uidOfClass("VKFilterKeyExportConnection")),
         "The value for key \"filterConnections\" is not an array"},
        {"exports hold connections",
         withValue(good, "VKFilterChainWrapper", "filterExportConnections", connectionsOfWrapper),
         "The set for key \"filterExportConnections\" holds something other than export "
         "connections"},
        {"source key is a number", withValue(good, "VKFilterConnection", "sourceKey", seven),
         "The value for key \"sourceKey\" is not a string"},
        {"class names hold objects",
         withValue(good, "VKFilterKeyExportConnection", "filterClassNames", connectionsOfWrapper),
         "The value for key \"filterClassNames\" holds a member that is not a class name"},
        {"export without a filter",
         withValue(good, "VKFilterKeyExportConnection", "exportingFilter",
                   [](const QVariantList &) { return QVariant(); }),
         "VKFilterKeyExportConnection has no value for key \"exportingFilter\""},
        {"filter values are no dictionary",
         withValue(good, "ChainTestFilter", "VKFilterInputValues", seven),
         "The filter's values in the archive are not a dictionary."},
        {"reference loop",
         withValue(good, "VKFilterConnection", "sourceFilter", uidOfClass("VKFilterChainWrapper")),
         "VKFilterChainWrapper refers back to itself through its filters"},
        // A name of the same length keeps the binary layout intact.
        {"unknown class", QByteArray(good).replace("ChainTestFilter", "ChainGoneFilter"),
         "Cannot decode an object of class \"ChainGoneFilter\" for key \"sourceFilter\": the "
         "class is unknown or not archivable"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        VKError error;
        EXPECT_FALSE(
            VKKeyedUnarchiver::unarchivedObjectOfClass<VKFilterChainWrapper>(c.data, &error));
        EXPECT_EQ(error.domain(), VQErrorDomainVessanUtilities);
        EXPECT_EQ(error.localizedDescription(), c.description);
    }
}

// Exposure (GEGL), then a chain inside the chain: the Grade plug-in and levels (GEGL), with every
// parameter set through the outer wrapper. Restored here it is the same graph, one object per
// filter, and renders the same pixels; so it does in a fresh process, which loads Grade.plugin
// from the "../Filters" beside it on the way.
TEST(FilterChain, ArchivedChainsRestoreTheSameGraphAndPixels)
{
    const auto exposure = VKFilterFactory::filterWithName("gegl:exposure");
    const auto grade = VKFilterFactory::filterWithName("Grade");
    const auto levels = VKFilterFactory::filterWithName("gegl:levels");
    ASSERT_TRUE(exposure && levels) << "GEGL lacks exposure or levels";
    ASSERT_TRUE(grade) << "Grade.plugin was not loaded from "
                       << VKFilterFactory::filtersFolderPath();
    auto inner = std::make_shared<VKFilterChainWrapper>();
    inner->concatenateFiltersFromArray({grade, levels});
    inner->exportInputImageKeyForFilter(grade);
    inner->exportOutputImageKeyForFilter(levels);
    auto chain = std::make_shared<VKFilterChainWrapper>();
    chain->concatenateFiltersFromArray({exposure, inner});
    chain->exportInputImageKeyForFilter(exposure);
    chain->exportOutputImageKeyForFilter(inner);
    const QVariantMap parameters{
        {"exposure", 1.0}, {"inputSlope", QVariant::fromValue(VKRGBTriple(0.5f, 1, 2))},
        {"in-low", 0.0},   {"in-high", 4.0},
        {"out-low", 0.5},  {"out-high", 1.5},
    };
    for (auto it = parameters.cbegin(); it != parameters.cend(); ++it)
        chain->setValueForKey(it.value(), it.key());
    setInput(*chain);
    // x * 2, then * slope, then / 4 + 0.5.
    const QList<float> expected{0.5625f, 0.75f, 1.5f, 1, 0.5f, 0.5625f, 2.5f, 1};
    const QList<float> rendered = render(chain->outputImage());
    EXPECT_EQ(rendered, expected);

    VKError error;
    const QByteArray data = archive(chain);
    const auto restored =
        VKKeyedUnarchiver::unarchivedObjectOfClass<VKFilterChainWrapper>(data, &error);
    ASSERT_TRUE(restored) << error.localizedDescription();
    const auto restoredInner = std::dynamic_pointer_cast<VKFilterChainWrapper>(
        restored->filterConnections().value(0)->targetFilter());
    ASSERT_TRUE(restoredInner);
    EXPECT_EQ(restored->outputConnection()->exportingFilter(), restoredInner);
    EXPECT_EQ(graphOf(*restored), graphOf(*chain));
    EXPECT_EQ(graphOf(*restoredInner), graphOf(*inner));
    EXPECT_EQ(restoredInner->filterConnections().value(0)->targetFilter(),
              restoredInner->outputConnection()->exportingFilter());
    setInput(*restored);
    EXPECT_EQ(render(restored->outputImage()), rendered);

    VKTempDir temp;
    const VKProgramRun run =
        vkRunProgram(vkTestBinaryPath("vkfilterprobe"), {"--restore", temp.writeFile("c", data)});
    QJsonArray pixels;
    for (const float value : rendered)
        pixels.append(double(value));
    EXPECT_EQ(QJsonDocument::fromJson(run.output).object(),
              QJsonObject({{"before", false}, {"after", true}, {"pixels", pixels}}))
        << run.output.toStdString();
}
