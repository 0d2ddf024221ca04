// SPDX-License-Identifier: LGPL-2.1-or-later

#include "tool.hpp"

#include "support/temporaryfolder.hpp"

#include <glib.h>

#include <algorithm>
#include <fcntl.h>
#include <sstream>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace qandor::test {
namespace {

std::string content_of(const std::filesystem::path &path)
{
    std::ifstream file(path, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

void set_environment()
{
    setenv("COLUMNS", "80", 1);
    setenv("LC_ALL", "C.UTF-8", 1);
    setenv("TZ", "UTC", 1);
}

void redirect(const std::filesystem::path &path, int flags, int descriptor)
{
    int file = open(path.c_str(), flags, 0600);
    dup2(file, descriptor);
    close(file);
}

ToolRun run_to_its_end(std::vector<std::string> command, const std::string &input,
                       const std::string &folder)
{
    TemporaryFolder files;
    files.write("in", input);
    pid_t pid = fork();
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        set_environment();
        alarm(60);
        redirect(files.path() / "in", O_RDONLY, STDIN_FILENO);
        redirect(files.path() / "out", O_WRONLY | O_CREAT, STDOUT_FILENO);
        redirect(files.path() / "err", O_WRONLY | O_CREAT, STDERR_FILENO);
        if (!folder.empty() && chdir(folder.c_str()) < 0)
            _exit(127);
        std::vector<char *> arguments;
        for (std::string &argument : command)
            arguments.push_back(argument.data());
        arguments.push_back(nullptr);
        execvp(arguments[0], arguments.data());
        _exit(127);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status),
            content_of(files.path() / "out"), content_of(files.path() / "err")};
}

} // namespace

nlohmann::json ToolRun::json_line(std::size_t number) const
{
    std::istringstream lines(out);
    std::string line;
    for (std::size_t i = 0; i <= number; ++i)
        std::getline(lines, line);
    return nlohmann::json::parse(line);
}

std::size_t ToolRun::width() const
{
    std::size_t width = 0;
    for (const std::string *text : {&out, &err}) {
        std::istringstream lines(*text);
        for (std::string line; std::getline(lines, line);)
            width = std::max(width, static_cast<std::size_t>(g_utf8_strlen(line.c_str(), -1)));
    }
    return width;
}

std::ostream &operator<<(std::ostream &stream, const ToolRun &run)
{
    return stream << "exit code " << run.code << "\n" << run.out << run.err;
}

ToolRun tool(const std::vector<std::string> &arguments, const std::string &input)
{
    std::vector<std::string> command{QANDOR_TOOL};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return run_to_its_end(command, input, "");
}

ToolRun shell(const std::string &line, const std::string &folder)
{
    std::string setup = std::string("qandor() { '") + QANDOR_TOOL + "' \"$@\"; }; ";
    return run_to_its_end({"sh", "-c", setup + line}, "", folder);
}

ChildProcess start_tool(const std::vector<std::string> &arguments)
{
    set_environment();
    std::vector<std::string> command{QANDOR_TOOL};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return ChildProcess(command);
}

} // namespace qandor::test
