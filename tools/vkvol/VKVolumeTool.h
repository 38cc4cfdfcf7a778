// The delegate of vkvol: prints the statistics and identity of the volumes that hold the given
// paths (every mounted volume without paths), as text or JSON, or the short labels the path
// shortener makes for the paths.
#pragma once

#include "Application/VKApplication.h"

#include <QJsonObject>

class VKStatInfo;

class VKVolumeTool : public VKApplicationDelegate
{
public:
    static std::shared_ptr<VKApplicationConfiguration> applicationConfiguration();

    void application(VKApplication &application,
                     const std::shared_ptr<VKApplicationArguments> &arguments) override;

    // The text block of one volume, headed by `path` (as the user gave it).
    static QString volumeText(const QString &path, VKStatInfo &info);
    // The JSON object of one volume.
    static QJsonObject volumeJson(const QString &path, VKStatInfo &info);

private:
    int showVolumes(const QStringList &paths, bool json);
    int showShortPaths(const QStringList &paths);
};
