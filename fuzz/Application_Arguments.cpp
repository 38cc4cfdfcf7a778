// Feeds arbitrary command lines to the parser and arbitrary files to the configuration reader.
// Every token must end up exactly once as an argument, an option, a parameter or a parameter's
// value, and reading a configuration file must never crash.
#include "Application/VKApplication.h"

#include <QFile>
#include <QTemporaryDir>

#include <cstdint>
#include <cstdlib>

namespace {

std::shared_ptr<VKApplicationConfiguration> configuration()
{
    static const auto shared = std::make_shared<VKApplicationConfiguration>(
        QStringLiteral("usage"), QStringLiteral("end"),
        VKApplicationOptionConfigurationList{
            VKApplicationOptionConfiguration::optionConfigurationWithLongIdentifier(
                QStringLiteral("verbose"), QStringLiteral("v"), QStringLiteral("talk")),
            VKApplicationParameterConfiguration::parameterConfigurationWithLongIdentifier(
                QStringLiteral("count"), QStringLiteral("c"), QStringLiteral("n"),
                VKApplicationParameterTypeInteger, QStringLiteral("n")),
            VKApplicationParameterConfiguration::parameterConfigurationWithLongIdentifier(
                QStringLiteral("scale"), QStringLiteral("s"), QStringLiteral("x"),
                VKApplicationParameterTypeFloat, QStringLiteral("x")),
            VKApplicationParameterConfiguration::parameterConfigurationWithLongIdentifier(
                QStringLiteral("out"), QStringLiteral("o"), QStringLiteral("file"),
                VKApplicationParameterTypeString, QStringLiteral("file"))});
    return shared;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size));
    QStringList tokens;
    for (const QByteArray &part : bytes.split('\0'))
        tokens.append(QString::fromUtf8(part));
    const auto parsed = VKApplication::parseRawArguments(tokens, configuration());
    // Arguments and options are one token each; a parameter takes two, at most once per name.
    const qsizetype used =
        parsed->arguments().size() + parsed->options().size() + 2 * parsed->parameters().size();
    if (used > tokens.size())
        std::abort();

    static QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("configuration.plist"));
    QFile file(path);
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        file.write(bytes);
        file.close();
        (void)VKApplication::applicationConfigurationFromFileAtPath(path);
    }
    return 0;
}
