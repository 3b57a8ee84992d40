#include "Process.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <stdexcept>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

struct Pipe {
    int readEnd = -1;
    int writeEnd = -1;

    Pipe() {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0)
            throw std::runtime_error("no pipe");
        readEnd = ends[0];
        writeEnd = ends[1];
    }
};

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> result;
    for (std::string& text : texts)
        result.push_back(text.data());
    result.push_back(nullptr);
    return result;
}

} // namespace

Process::Process(const Setup& setup) {
    if (setup.isOnTerminal) {
        m_output.fd = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
        if (m_output.fd < 0 || grantpt(m_output.fd) != 0 || unlockpt(m_output.fd) != 0)
            throw std::runtime_error("no terminal");
        spawn(setup, -1, -1, -1);
        startReader(m_output);
        return;
    }
    const Pipe in;
    const Pipe out;
    const Pipe err;
    spawn(setup, in.readEnd, out.writeEnd, err.writeEnd);
    close(in.readEnd);
    close(out.writeEnd);
    close(err.writeEnd);
    if (write(in.writeEnd, setup.input.data(), setup.input.size()) < 0)
        throw std::runtime_error("cannot write its input");
    close(in.writeEnd);
    m_output.fd = out.readEnd;
    m_error.fd = err.readEnd;
    startReader(m_error);
    if (setup.collectsOutput)
        startReader(m_output);
}

Process::~Process() {
    if (!m_hasEnded) {
        kill(m_pid, SIGKILL);
        waitpid(m_pid, &m_status, 0);
    }
    for (Stream* stream : {&m_output, &m_error}) {
        if (stream->reader.joinable())
            stream->reader.join();
        if (stream->fd >= 0)
            close(stream->fd);
    }
}

void Process::spawn(const Setup& setup, int in, int out, int err) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    // A session of its own: without the terminal of whoever runs the tests, and with ours if it gets one.
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
    if (setup.isOnTerminal) {
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, ptsname(m_output.fd), O_RDWR, 0);
        posix_spawn_file_actions_adddup2(&actions, STDIN_FILENO, STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions, STDIN_FILENO, STDERR_FILENO);
    } else {
        posix_spawn_file_actions_adddup2(&actions, in, STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, out, STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions, err, STDERR_FILENO);
    }
    std::vector<std::string> arguments{setup.program};
    arguments.insert(arguments.end(), setup.arguments.begin(), setup.arguments.end());
    std::vector<std::string> environment;
    for (const auto& [name, value] : setup.environment)
        environment.push_back(name + "=" + value);
    const int error = posix_spawn(&m_pid, setup.program.c_str(), &actions, &attributes,
                                  pointers(arguments).data(), pointers(environment).data());
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    if (error != 0)
        throw std::runtime_error("cannot start " + setup.program);
}

void Process::startReader(Stream& stream) {
    stream.isAtEnd = false;
    stream.reader = std::thread([this, &stream] {
        char buffer[65536];
        ssize_t length = 0;
        // A terminal reads as an error once the program has closed it.
        while ((length = read(stream.fd, buffer, sizeof buffer)) > 0 || (length < 0 && errno == EINTR)) {
            const std::lock_guard<std::mutex> lock(m_mutex);
            stream.text.append(buffer, static_cast<std::size_t>(length < 0 ? 0 : length));
            m_changed.notify_all();
        }
        const std::lock_guard<std::mutex> lock(m_mutex);
        stream.isAtEnd = true;
        m_changed.notify_all();
    });
}

void Process::signal(int number) const {
    kill(m_pid, number);
}

void Process::collectOutput() {
    startReader(m_output);
}

void Process::closeOutput() {
    close(m_output.fd);
    m_output.fd = -1;
}

void Process::type(const std::string& text) const {
    if (write(m_output.fd, text.data(), text.size()) < 0)
        throw std::runtime_error("cannot type");
}

bool Process::waitFor(const Stream& stream, const std::function<bool(const std::string&)>& predicate,
                      Deadline deadline) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, deadline, [&] { return predicate(stream.text) || stream.isAtEnd; }) &&
           predicate(stream.text);
}

bool Process::waitForOutput(const std::function<bool(const std::string&)>& predicate, Deadline deadline) {
    return waitFor(m_output, predicate, deadline);
}

bool Process::waitForError(const std::function<bool(const std::string&)>& predicate, Deadline deadline) {
    return waitFor(m_error, predicate, deadline);
}

int Process::waitForEnd(Deadline deadline) {
    std::unique_lock<std::mutex> lock(m_mutex);
    const bool isOver =
        m_changed.wait_for(lock, deadline, [this] { return m_output.isAtEnd && m_error.isAtEnd; });
    lock.unlock();
    if (!isOver)
        kill(m_pid, SIGKILL);
    waitpid(m_pid, &m_status, 0);
    m_hasEnded = true;
    if (!isOver)
        return -1;
    return WIFEXITED(m_status) ? WEXITSTATUS(m_status) : 1000 + WTERMSIG(m_status);
}

std::string Process::textOf(const Stream& stream) const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return stream.text;
}
