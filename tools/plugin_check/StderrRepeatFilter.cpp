#include "StderrRepeatFilter.h"

#include <unistd.h>

#include <iostream>

namespace pluginCheck
{
StderrRepeatFilter::StderrRepeatFilter()
{
    int fds[2];
    if (pipe (fds) != 0)
        return;
    realStderr = dup (STDERR_FILENO);
    dup2 (fds[1], STDERR_FILENO);
    close (fds[1]);
    reader = std::thread ([this, in = fds[0]] { readUntilClosed (in); });
}

StderrRepeatFilter::~StderrRepeatFilter()
{
    finish();
}

void StderrRepeatFilter::finish()
{
    if (realStderr < 0)
        return;
    // Replacing the pipe's last write end lets the reader see its end.
    dup2 (realStderr, STDERR_FILENO);
    reader.join();
    close (realStderr);
    realStderr = -1;
    for (const auto& [line, count] : counts)
        if (count > 1)
            std::cerr << "(" << count << " times) " << line << std::endl;
}

void StderrRepeatFilter::readUntilClosed (int in)
{
    std::string pending;
    char chunk[4096];
    for (;;)
    {
        const auto n = read (in, chunk, sizeof (chunk));
        if (n <= 0)
            break;
        pending.append (chunk, (size_t) n);
        for (auto end = pending.find ('\n'); end != std::string::npos; end = pending.find ('\n'))
        {
            passOn (pending.substr (0, end));
            pending.erase (0, end + 1);
        }
    }
    if (! pending.empty())
        passOn (pending);
    close (in);
}

void StderrRepeatFilter::passOn (const std::string& line)
{
    if (++counts[line] == 1)
    {
        const auto text = line + "\n";
        juce::ignoreUnused (write (realStderr, text.data(), text.size()));
    }
}
} // namespace pluginCheck
