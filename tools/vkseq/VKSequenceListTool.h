// The delegate of vkseq: lists the file sequences of folders (one line per run, as the
// sequence grouping makes them), or checks whether the members of one identifier exist.
#pragma once

#include "Application/VKApplication.h"

class VKSequenceListTool : public VKApplicationDelegate
{
public:
    static std::shared_ptr<VKApplicationConfiguration> applicationConfiguration();

    void application(VKApplication &application,
                     const std::shared_ptr<VKApplicationArguments> &arguments) override;

private:
    // Lists the folders (and their subfolders when recursive); answers false if any folder
    // could not be read. Each path is written in the output as given ("" for the current folder
    // when no path was given).
    bool listFolder(const QStringList &paths, bool recursive, bool sizes);
    int check(const QString &identifier);

    bool m_progress = false;
};
