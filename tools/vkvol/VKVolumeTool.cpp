#include "VKVolumeTool.h"

#include "Files/VKFileSize.h"
#include "Files/VKPath.h"
#include "Files/VKPathShortener.h"
#include "Files/VKStatInfo.h"
#include "VKToolSupport.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>

#include <ctime>

namespace {

const QString kJson = QStringLiteral("json");
const QString kShort = QStringLiteral("short");
const QString kHelp = QStringLiteral("help");

QString yesNo(bool value)
{
    return value ? QStringLiteral("yes") : QStringLiteral("no");
}

// A path as the library needs it: absolute, with a trailing "/" kept.
QString absolutePath(const QString &path)
{
    QString absolute = QDir::cleanPath(QDir::current().absoluteFilePath(path));
    if (path.endsWith(u'/') && !absolute.endsWith(u'/'))
        absolute += u'/';
    return absolute;
}

// "2009-02-14 00:31:30 +0100" in the local time zone, or "none".
QString localDate(const QDateTime &date)
{
    if (date.isNull())
        return QStringLiteral("none");
    const time_t seconds = static_cast<time_t>(date.toSecsSinceEpoch());
    struct tm local
    {
    };
    char buffer[64];
    if (!localtime_r(&seconds, &local))
        return QStringLiteral("none");
    const size_t length = std::strftime(buffer, sizeof buffer, "%Y-%m-%d %H:%M:%S %z", &local);
    return QString::fromLatin1(buffer, static_cast<qsizetype>(length));
}

QString sizeText(quint64 bytes)
{
    return QStringLiteral("%1 (%2 bytes)")
        .arg(VKFileSize::humanReadableFileSizeStringFromByteCount(bytes))
        .arg(bytes);
}

} // namespace

std::shared_ptr<VKApplicationConfiguration> VKVolumeTool::applicationConfiguration()
{
    VKApplicationOptionConfigurationList list;
    list.append(VKApplicationOptionConfiguration::optionConfigurationWithLongIdentifier(
        kJson, QStringLiteral("j"), QStringLiteral("Print the volumes as JSON")));
    list.append(VKApplicationOptionConfiguration::optionConfigurationWithLongIdentifier(
        kShort, QStringLiteral("s"),
        QStringLiteral("Print a short label per path that still tells the paths apart")));
    list.append(VKApplicationOptionConfiguration::optionConfigurationWithLongIdentifier(
        kHelp, QStringLiteral("h"), QStringLiteral("Print this text")));
    return std::make_shared<VKApplicationConfiguration>(
        QStringLiteral("usage: vkvol [options] [PATH ...]\n\n"
                       "Shows the volume that holds each path (default: every mounted volume): "
                       "its mount path,\ntype, names, sizes, kind, creation date and the "
                       "identity that stays the same across\nmounts."),
        QStringLiteral("EXAMPLES\n"
                       "\tvkvol /media/CARD_A/DCIM     the volume of one path\n"
                       "\tvkvol --json                 every mounted volume, as JSON\n"
                       "\tvkvol -s A/Day1/C001.mov B/Day2/C001.mov\n"
                       "\t                             volume \u2014 folder \u2014 file, "
                       "per path\n\n"
                       "EXIT STATUS\n"
                       "\t0 success; 1 a path does not exist or lies on no mounted volume."),
        list);
}

QString VKVolumeTool::volumeText(const QString &path, VKStatInfo &info)
{
    const QList<std::pair<QString, QString>> fields = {
        {QStringLiteral("mount path"), info.mountPath()},
        {QStringLiteral("type"), info.fsType()},
        {QStringLiteral("display name"), info.displayName()},
        {QStringLiteral("volume name"), info.volumeName()},
        {QStringLiteral("total"), sizeText(info.totalBytes())},
        {QStringLiteral("free"), sizeText(info.freeBytes())},
        {QStringLiteral("available"), sizeText(info.availableBytes())},
        {QStringLiteral("removable"), yesNo(info.isRemovable())},
        {QStringLiteral("unmountable"), yesNo(info.isUnmountable())},
        {QStringLiteral("network share"), yesNo(info.isNetworkShare())},
        {QStringLiteral("created"), localDate(info.createDate())},
        {QStringLiteral("identity"), info.vessanVolumeID()},
    };
    QString text = path + u'\n';
    for (const auto &[name, value] : fields)
        text += QStringLiteral("  %1 %2\n").arg(name + u':', -15).arg(value);
    return text;
}

QJsonObject VKVolumeTool::volumeJson(const QString &path, VKStatInfo &info)
{
    const QDateTime created = info.createDate();
    return QJsonObject{
        {QStringLiteral("path"), path},
        {QStringLiteral("mountPath"), info.mountPath()},
        {QStringLiteral("fsType"), info.fsType()},
        {QStringLiteral("displayName"), info.displayName()},
        {QStringLiteral("volumeName"), info.volumeName()},
        {QStringLiteral("totalBytes"), static_cast<qint64>(info.totalBytes())},
        {QStringLiteral("freeBytes"), static_cast<qint64>(info.freeBytes())},
        {QStringLiteral("availableBytes"), static_cast<qint64>(info.availableBytes())},
        {QStringLiteral("isRemovable"), info.isRemovable()},
        {QStringLiteral("isUnmountable"), info.isUnmountable()},
        {QStringLiteral("isNetworkShare"), info.isNetworkShare()},
        {QStringLiteral("createDate"),
         created.isNull() ? QJsonValue() : QJsonValue(created.toUTC().toString(Qt::ISODate))},
        {QStringLiteral("vessanVolumeID"), info.vessanVolumeID()},
    };
}

int VKVolumeTool::showVolumes(const QStringList &paths, bool json)
{
    int status = 0;
    QStringList shown = paths;
    if (shown.isEmpty())
        shown = VKStatInfo::mountedVolumePaths();
    QJsonArray array;
    bool first = true;
    for (const QString &path : std::as_const(shown)) {
        VKError error;
        const std::shared_ptr<VKStatInfo> info =
            VKStatInfo::statInfoForPath(absolutePath(path), &error);
        if (!info) {
            vkToolWrite(stderr,
                        QStringLiteral("vkvol: %1: %2\n").arg(path, error.localizedDescription()));
            status = 1;
            continue;
        }
        if (json) {
            array.append(volumeJson(path, *info));
        } else {
            vkToolWrite(stdout,
                        (first ? QString() : QStringLiteral("\n")) + volumeText(path, *info));
            std::fflush(stdout);
            first = false;
        }
    }
    if (json)
        vkToolWrite(stdout,
                    QString::fromUtf8(QJsonDocument(array).toJson(QJsonDocument::Indented)));
    return status;
}

int VKVolumeTool::showShortPaths(const QStringList &paths)
{
    int status = 0;
    QList<std::shared_ptr<VKPath>> records;
    for (const QString &path : paths) {
        std::shared_ptr<VKPath> record = VKPath::pathWithAbsoluteFilePath(absolutePath(path));
        if (!record) {
            vkToolWrite(stderr,
                        QStringLiteral("vkvol: %1: no mounted volume holds this path\n").arg(path));
            status = 1;
            continue;
        }
        records.append(record);
    }
    const VKPathShortener shortener(records, true, true, true);
    QString out;
    // Icons are left out, with the space that ties each one to its name.
    for (const VKAttributedString &line : shortener.beautifiedPaths())
        out += QString(line.string()).remove(QStringLiteral("\uFFFC\u00A0")) + u'\n';
    vkToolWrite(stdout, out);
    return status;
}

void VKVolumeTool::application(VKApplication &application,
                               const std::shared_ptr<VKApplicationArguments> &arguments)
{
    const QStringList options = arguments->options();
    if (options.contains(kHelp)) {
        application.printUsage();
        vkToolFinish(application, 0);
        return;
    }
    const QStringList paths = arguments->arguments();
    if (options.contains(kShort)) {
        vkToolFinish(application, showShortPaths(paths));
        return;
    }
    vkToolFinish(application, showVolumes(paths, options.contains(kJson)));
}
