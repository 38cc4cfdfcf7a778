// The delegate of vkreportd: parses the options, starts the report server and runs until
// SIGTERM or SIGINT.
#pragma once

#include "Application/VKApplication.h"

#include <memory>

class QSocketNotifier;
class VKReportServer;

class VKReportServerTool : public VKApplicationDelegate
{
public:
    static constexpr quint16 defaultPort = 8080;

    static std::shared_ptr<VKApplicationConfiguration> applicationConfiguration();

    VKReportServerTool();
    ~VKReportServerTool() override;

    void application(VKApplication &application,
                     const std::shared_ptr<VKApplicationArguments> &arguments) override;

private:
    std::unique_ptr<VKReportServer> m_server;
    std::unique_ptr<QSocketNotifier> m_signalNotifier;
};
