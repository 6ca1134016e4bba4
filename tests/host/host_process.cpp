#include "host_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace zqhosttest {

std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

namespace {

}  // namespace

HostRun RunHost(const std::vector<std::string>& args, double timeoutSeconds) {
    HostRun run;
    char errTemplate[] = "/tmp/zqmonitor-stderr-XXXXXX";
    const int errFd = mkstemp(errTemplate);
    int pipeFds[2];
    if (errFd < 0 || pipe(pipeFds) != 0) {
        run.err = "cannot make the pipes for the child";
        return run;
    }
    std::vector<std::string> argv = {ZQ_MONITOR_EXE};
    argv.insert(argv.end(), args.begin(), args.end());
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(pipeFds[1], STDOUT_FILENO);
        dup2(errFd, STDERR_FILENO);
        close(pipeFds[0]);
        close(pipeFds[1]);
        close(errFd);
        const int devNull = open("/dev/null", O_RDONLY);
        if (devNull >= 0) dup2(devNull, STDIN_FILENO);
        unsetenv("ZQ_VIRTUAL_MACHINE");
        std::vector<char*> raw;
        for (std::string& a : argv) raw.push_back(a.data());
        raw.push_back(nullptr);
        execv(raw[0], raw.data());
        _exit(127);
    }
    close(pipeFds[1]);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(timeoutSeconds);
    char buffer[4096];
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            run.timedOut = true;
            kill(pid, SIGKILL);
            break;
        }
        pollfd p = {pipeFds[0], POLLIN, 0};
        const int ready = poll(&p, 1, static_cast<int>(left.count()));
        if (ready <= 0) continue;  // time-out (checked above) or an interrupted poll
        const ssize_t n = read(pipeFds[0], buffer, sizeof buffer);
        if (n <= 0) break;  // end of output: the child has closed it
        run.out.append(buffer, static_cast<size_t>(n));
    }
    close(pipeFds[0]);
    int status = 0;
    waitpid(pid, &status, 0);  // the child has ended its output or been killed
    run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    run.err = ReadFile(errTemplate);
    close(errFd);
    unlink(errTemplate);
    return run;
}

TestFolder::TestFolder() {
    char path[] = "/tmp/zqmonitor-test-XXXXXX";
    if (mkdtemp(path) != nullptr) m_path = path;
}

TestFolder::~TestFolder() {
    std::error_code ignored;
    if (!m_path.empty()) std::filesystem::remove_all(m_path, ignored);
}

std::string TestFolder::Write(const std::string& name, const std::string& text) const {
    const std::string path = Path(name);
    std::ofstream(path, std::ios::binary) << text;
    return path;
}

std::string MachineXml(const MachineSpec& endpointSpec) {
    const std::string container = endpointSpec.usbDevice.empty()
                                      ? "container=\"" + endpointSpec.container + "\""
                                      : "usb_device=\"" + endpointSpec.usbDevice + "\"";
    std::ostringstream xml;
    xml << "<machine>\n"
        << "  <bridge product=\"KV-1 USB Microphone\" serial=\"" << endpointSpec.serial << "\" " << container
        << " version_reply=\"AA 05 12\"/>\n"
        << "  <endpoint flow=\"capture\" name=\"" << endpointSpec.microphoneName << "\" " << container
        << " rate=\"48000\" channels=\"1\" format=\"int16\" default=\"all\">\n"
        << "    <source kind=\"tone\" frequency=\"" << endpointSpec.toneHz << "\" level_dbfs=\"" << endpointSpec.toneDbfs << "\"/>\n"
        << "  </endpoint>\n"
        << "  <endpoint flow=\"render\" name=\"" << endpointSpec.renderName << "\" rate=\"" << endpointSpec.renderRate
        << "\" channels=\"2\" format=\"" << endpointSpec.renderFormat << "\" default=\"all\"/>\n"
        << "</machine>\n";
    return xml.str();
}

SummaryRun RunSummary(const TestFolder& folder, const std::string& machineXml, double seconds,
                      const std::vector<std::string>& extraArgs) {
    std::vector<std::string> args = {"--machine", folder.Write("machine.xml", machineXml), "--log",
                                     folder.Path("zqmonitor.log"), "--seconds", std::to_string(seconds), "--json"};
    args.insert(args.end(), extraArgs.begin(), extraArgs.end());
    SummaryRun result;
    result.run = RunHost(args);
    result.json = JsonValue::Parse(result.run.out, &result.parseError);
    return result;
}

}  // namespace zqhosttest
