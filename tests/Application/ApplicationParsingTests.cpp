// Command-line parsing: token forms, parameter values and their numeric readings, lookup rules.
#include "Application/VKApplication.h"
#include "Foundation/VKLenientNumber.h"
#include "Foundation/VKException.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

using Options = VKApplicationOptionConfigurationList;

std::shared_ptr<VKApplicationConfiguration> configurationWith(const Options &options)
{
    return std::make_shared<VKApplicationConfiguration>(QStringLiteral("prefix"),
                                                        QStringLiteral("suffix"), options);
}

// -v/--verbose, -o/--out <string>, -c/--count <int>, -r/--rate <float>.
std::shared_ptr<VKApplicationConfiguration> toolConfiguration()
{
    Options options = VKApplication::optionsWithLongIdentifierShortIdentifierAndUsage(
        {"verbose", "v", "Talk more."});
    options += VKApplication::parametersWithLongIdentifierShortIdentifierUsageTypeAndName(
        {"out", "o", "Output file.", "string", "file", //
         "count", "c", "How many.", "int", "n",        //
         "rate", "r", "Frames per second.", "float", "fps"});
    return configurationWith(options);
}

std::shared_ptr<VKApplicationArguments>
parse(const QStringList &tokens,
      const std::shared_ptr<VKApplicationConfiguration> &configuration = toolConfiguration())
{
    return VKApplication::parseRawArguments(tokens, configuration);
}

class TaggedParameterConfiguration : public VKApplicationParameterConfiguration
{
public:
    using VKApplicationParameterConfiguration::VKApplicationParameterConfiguration;
};

class TaggedOptionConfiguration : public VKApplicationOptionConfiguration
{
public:
    using VKApplicationOptionConfiguration::VKApplicationOptionConfiguration;
};

} // namespace

TEST(ApplicationParsing, SortsTokensIntoArgumentsParametersAndOptions)
{
    auto result = parse({"-v", "--out", "x.txt", "file"});
    EXPECT_EQ(result->options(), QStringList{"verbose"});
    EXPECT_EQ(result->parameters(), (QVariantMap{{"out", "x.txt"}}));
    EXPECT_EQ(result->arguments(), QStringList{"file"});

    // Unknown tokens keep their dashes and their place; nothing stops option processing.
    result = parse({"a", "-unknown", "--unknown", "-", "--", "b", "--verbose", "-ab", "c"});
    EXPECT_EQ(result->arguments(),
              (QStringList{"a", "-unknown", "--unknown", "-", "--", "b", "-ab", "c"}));
    EXPECT_EQ(result->options(), QStringList{"verbose"});

    // Repeats: options once per occurrence, parameters keep the last value.
    result = parse({"-v", "--out", "first", "--verbose", "-o", "second", "-v"});
    EXPECT_EQ(result->options(), (QStringList{"verbose", "verbose", "verbose"}));
    EXPECT_EQ(result->parameters(), (QVariantMap{{"out", "second"}}));
    EXPECT_TRUE(result->arguments().isEmpty());

    // No grouping and no "=value" forms; identifiers are case-sensitive.
    result = parse({"-vo", "--out=x", "-V", "--Verbose"});
    EXPECT_EQ(result->arguments(), (QStringList{"-vo", "--out=x", "-V", "--Verbose"}));
    EXPECT_TRUE(result->options().isEmpty());
    EXPECT_TRUE(result->parameters().isEmpty());

    result = parse({});
    EXPECT_TRUE(result->arguments().isEmpty());
    EXPECT_TRUE(result->parameters().isEmpty());
    EXPECT_TRUE(result->options().isEmpty());
}

TEST(ApplicationParsing, ParameterValueIsNeverTakenForAnOption)
{
    auto result = parse({"--count", "-5"});
    EXPECT_EQ(result->parameters().value("count"), QVariant(-5));
    EXPECT_EQ(result->parameters().value("count").metaType().id(), QMetaType::Int);

    result = parse({"--out", "--verbose", "-o", "-v", "tail"});
    EXPECT_EQ(result->parameters(), (QVariantMap{{"out", "-v"}}));
    EXPECT_TRUE(result->options().isEmpty());
    EXPECT_EQ(result->arguments(), QStringList{"tail"});

    // A parameter as the last token is dropped without a trace.
    result = parse({"file", "-v", "--out"});
    EXPECT_EQ(result->arguments(), QStringList{"file"});
    EXPECT_EQ(result->options(), QStringList{"verbose"});
    EXPECT_TRUE(result->parameters().isEmpty());

    // Empty tokens are plain arguments, and an empty value is a value.
    result = parse({"", "--out", "", ""});
    EXPECT_EQ(result->arguments(), (QStringList{"", ""}));
    EXPECT_EQ(result->parameters(), (QVariantMap{{"out", ""}}));
}

TEST(ApplicationParsing, NonAsciiTokensPassThroughUnchanged)
{
    const QString name = QString::fromUtf8("Grüße – 日本語 😀");
    auto result = parse({name, "--out", name, QString::fromUtf8("-ü"), QString::fromUtf8("—v")});
    EXPECT_EQ(result->arguments(),
              (QStringList{name, QString::fromUtf8("-ü"), QString::fromUtf8("—v")}));
    EXPECT_EQ(result->parameters().value("out").toString(), name);

    Options options = VKApplication::optionsWithLongIdentifierShortIdentifierAndUsage(
        {QString::fromUtf8("größe"), QString::fromUtf8("ß"), "size"});
    result = parse(
        {QString::fromUtf8("-ß"), QString::fromUtf8("--größe"), QString::fromUtf8("--GRÖSSE")},
        configurationWith(options));
    EXPECT_EQ(result->options(),
              (QStringList{QString::fromUtf8("größe"), QString::fromUtf8("größe")}));
    EXPECT_EQ(result->arguments(), QStringList{QString::fromUtf8("--GRÖSSE")});
}

TEST(ApplicationParsing, NumericParametersReadTheLeadingNumber)
{
    struct Case
    {
        const char *text;
        qint32 integer;
        float real;
    };
    const Case cases[] = {
        {"42", 42, 42.0f},
        {"12abc", 12, 12.0f},
        {"", 0, 0.0f},
        {"-", 0, 0.0f},
        {"+", 0, 0.0f},
        {"1e3", 1, 1000.0f},
        {"2.5e", 2, 2.5f},
        {"-7.25x", -7, -7.25f},
        {"  \t19", 19, 19.0f},
        {".5", 0, 0.5f},
        {"-.5e-1", 0, -0.05f},
        {"abc", 0, 0.0f},
        {"0x1A", 0, 0.0f},
        {"1,5", 1, 1.0f},
        {"+8", 8, 8.0f},
        {"2147483647", 2147483647, 2147483647.0f},
        {"2147483648", 2147483647, 2147483648.0f},
        {"-2147483648", std::numeric_limits<qint32>::min(), -2147483648.0f},
        {"-99999999999999999999", std::numeric_limits<qint32>::min(), -1e20f},
        {"1e-3", 1, 0.001f},
        {"3E+2", 3, 300.0f},
        {"inf", 0, 0.0f},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.text);
        auto result = parse({"-c", c.text, "--rate", c.text});
        const QVariant count = result->parameters().value("count");
        const QVariant rate = result->parameters().value("rate");
        EXPECT_EQ(count.metaType().id(), QMetaType::Int);
        EXPECT_EQ(rate.metaType().id(), QMetaType::Float);
        EXPECT_EQ(count.toInt(), c.integer);
        EXPECT_FLOAT_EQ(rate.toFloat(), c.real);
        EXPECT_TRUE(result->arguments().isEmpty());
    }

    // Out of single-precision range.
    EXPECT_EQ(VKLenientNumber::floatValue("1e39"), std::numeric_limits<float>::infinity());
    EXPECT_EQ(VKLenientNumber::floatValue("-1e400"), -std::numeric_limits<float>::infinity());
    EXPECT_EQ(VKLenientNumber::doubleValue("1e-400"), 0.0);
    EXPECT_EQ(VKLenientNumber::doubleValue("1e400"), std::numeric_limits<double>::infinity());
}

TEST(ApplicationParsing, UnknownParameterTypesKeepTheText)
{
    Options options{VKApplicationParameterConfiguration::parameterConfigurationWithLongIdentifier(
        "level", "l", "Level.", 7, "n")};
    auto result = parse({"-l", "12abc"}, configurationWith(options));
    EXPECT_EQ(result->parameters().value("level"), QVariant(QStringLiteral("12abc")));

    // Type names of the list builder: only "int" and "float" are numeric.
    options = VKApplication::parametersWithLongIdentifierShortIdentifierUsageTypeAndName(
        {"a", "a", "", "int", "", "b", "b", "", "float",  "",
         "c", "c", "", "Int", "", "d", "d", "", "double", ""});
    QList<qint32> types;
    for (const auto &option : options)
        types.append(
            std::static_pointer_cast<VKApplicationParameterConfiguration>(option)->parameterType());
    EXPECT_EQ(types, (QList<qint32>{1, 2, 0, 0}));
}

TEST(ApplicationParsing, LookupIsExactAndFirstMatchWins)
{
    const auto first =
        VKApplicationOptionConfiguration::optionConfigurationWithLongIdentifier("all", "a", "1");
    const auto second =
        VKApplicationOptionConfiguration::optionConfigurationWithLongIdentifier("all", "b", "2");
    const auto nullIdentifiers = std::make_shared<VKApplicationOptionConfiguration>();
    const Options list{nullptr, nullIdentifiers, first, second};

    EXPECT_EQ(VKApplication::configurationWithLongIdentifier("all", list), first);
    EXPECT_EQ(VKApplication::configurationWithShortIdentifier("b", list), second);
    EXPECT_EQ(VKApplication::configurationWithShortIdentifier("B", list), nullptr);
    EXPECT_EQ(VKApplication::configurationWithLongIdentifier("al", list), nullptr);
    // A null identifier matches nothing, not even an empty or null one.
    EXPECT_EQ(VKApplication::configurationWithShortIdentifier("", list), nullptr);
    EXPECT_EQ(VKApplication::configurationWithShortIdentifier(QString(), list), nullptr);

    // An empty identifier is a real one: it catches the lone dashes.
    Options empties{
        VKApplicationOptionConfiguration::optionConfigurationWithLongIdentifier("", "", "stdin")};
    auto result = parse({"-", "--", "---"}, configurationWith(empties));
    EXPECT_EQ(result->options(), (QStringList{"", ""}));
    EXPECT_EQ(result->arguments(), QStringList{"---"});
}

TEST(ApplicationParsing, DerivedConfigurationClassesParseByKind)
{
    Options options{
        std::make_shared<TaggedParameterConfiguration>("level", "l", "", 1, "n"),
        std::make_shared<TaggedOptionConfiguration>("quiet", "q", ""),
    };
    auto result = parse({"-l", "3", "-q"}, configurationWith(options));
    EXPECT_EQ(result->parameters(), (QVariantMap{{"level", 3}}));
    EXPECT_EQ(result->options(), QStringList{"quiet"});

    // Without a configuration every token is an argument.
    result = parse({"-l", "3"}, nullptr);
    EXPECT_EQ(result->arguments(), (QStringList{"-l", "3"}));
}

TEST(ApplicationParsing, ConfigurationWithoutLongIdentifierIsRejected)
{
    Options options{std::make_shared<VKApplicationOptionConfiguration>(QString(), "q", "")};
    try {
        parse({"x", "-q"}, configurationWith(options));
        FAIL() << "expected an exception";
    } catch (const VKException &exception) {
        EXPECT_EQ(exception.name(), VKInvalidArgumentException);
        EXPECT_EQ(exception.reason(),
                  "the option configuration matching \"-q\" has no long identifier");
    }
}
