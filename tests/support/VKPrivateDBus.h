// A private D-Bus daemon for tests and benchmarks: its own configuration and socket in a
// temporary folder (no service files, so no name is ever activated), never the machine's bus.
// Header-only and free of Qt so that it can live in a static and die after the application.
#pragma once

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

class VKPrivateDBus
{
public:
    // Starts the daemon and waits (at most `timeoutMs`) for its address.
    explicit VKPrivateDBus(int timeoutMs = 10000)
    {
        char folder[] = "/tmp/vkbus-XXXXXX";
        if (!mkdtemp(folder)) {
            m_error = "cannot create a temporary folder";
            return;
        }
        m_folder = folder;
        const std::string config = m_folder + "/bus.conf";
        FILE *file = std::fopen(config.c_str(), "w");
        if (!file) {
            m_error = "cannot write " + config;
            return;
        }
        std::fprintf(file,
                     "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration "
                     "1.0//EN\" \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
                     "<busconfig>\n"
                     "  <type>session</type>\n"
                     "  <listen>unix:dir=%s</listen>\n"
                     "  <auth>EXTERNAL</auth>\n"
                     "  <policy context=\"default\">\n"
                     "    <allow send_destination=\"*\" eavesdrop=\"true\"/>\n"
                     "    <allow eavesdrop=\"true\"/>\n"
                     "    <allow own=\"*\"/>\n"
                     "  </policy>\n"
                     "</busconfig>\n",
                     m_folder.c_str());
        std::fclose(file);

        int out[2];
        if (pipe2(out, O_CLOEXEC) != 0) {
            m_error = "cannot make a pipe";
            return;
        }
        const std::string configOption = "--config-file=" + config;
        m_pid = fork();
        if (m_pid == 0) {
            // The daemon goes with us, even when a test run is killed.
            prctl(PR_SET_PDEATHSIG, SIGTERM);
            dup2(out[1], STDOUT_FILENO);
            execlp("dbus-daemon", "dbus-daemon", configOption.c_str(), "--print-address=1",
                   "--nofork", "--nopidfile", static_cast<char *>(nullptr));
            _exit(127);
        }
        close(out[1]);
        if (m_pid < 0) {
            close(out[0]);
            m_error = "cannot fork";
            return;
        }
        std::string line;
        pollfd fd{out[0], POLLIN, 0};
        while (line.find('\n') == std::string::npos && poll(&fd, 1, timeoutMs) > 0) {
            char buffer[512];
            const ssize_t n = read(out[0], buffer, sizeof buffer);
            if (n <= 0)
                break;
            line.append(buffer, static_cast<size_t>(n));
        }
        close(out[0]);
        const size_t end = line.find('\n');
        if (end == std::string::npos || end == 0) {
            m_error = "dbus-daemon did not start (is the package dbus-daemon installed?)";
            stop();
            return;
        }
        m_address = line.substr(0, end);
    }

    ~VKPrivateDBus()
    {
        stop();
        if (!m_folder.empty()) {
            std::remove((m_folder + "/bus.conf").c_str());
            rmdir(m_folder.c_str()); // the daemon removes its socket itself
        }
    }

    VKPrivateDBus(const VKPrivateDBus &) = delete;
    VKPrivateDBus &operator=(const VKPrivateDBus &) = delete;

    bool isRunning() const { return !m_address.empty(); }
    const std::string &address() const { return m_address; }
    const std::string &error() const { return m_error; }

    // The bus every later session-bus connection of this process uses: Qt DBus and libdbus
    // read DBUS_SESSION_BUS_ADDRESS once, on first use, so call this before any of them.
    void makeSessionBus() const { setenv("DBUS_SESSION_BUS_ADDRESS", m_address.c_str(), 1); }

    // One daemon for the whole process, started on first use, serving as the session bus.
    static VKPrivateDBus &shared()
    {
        static VKPrivateDBus bus;
        if (bus.isRunning())
            bus.makeSessionBus();
        return bus;
    }

private:
    void stop()
    {
        if (m_pid <= 0)
            return;
        kill(m_pid, SIGTERM);
        int status = 0;
        while (waitpid(m_pid, &status, 0) < 0 && errno == EINTR) {
        }
        m_pid = -1;
    }

    std::string m_folder;
    std::string m_address;
    std::string m_error;
    pid_t m_pid = -1;
};
