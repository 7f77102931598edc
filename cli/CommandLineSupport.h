#pragma once

#include <juce_core/juce_core.h>

#include <ostream>

// Small pieces that every sub-command of the command line shares.
namespace tavrineCli
{
// The process exit status of every command.
enum class ExitCode : int
{
    success = 0,
    internalError = 1, // our code or the processor misbehaved
    usage = 2,         // bad command line
    input = 3,         // an input file is missing, unreadable or damaged
    output = 4,        // the output file cannot be written
};

// The steps every sub-command takes: parse the arguments, answer --help, run,
// then print the run's error, or its warnings and its one-line summary.
// Options has `action` with a `showHelp` value; run returns a result with
// `code`, `errorText` and a `summary` that counts `nonFiniteSamples` and has
// toString(); warnMore prints a command's own warnings of a successful run.
template <typename Options, typename Parse, typename Run, typename WarnMore>
ExitCode runSubCommand (const char* name, const juce::StringArray& args, std::ostream& out, std::ostream& err,
                        Parse parse, const juce::String& help, Run run, WarnMore warnMore)
{
    const juce::String prefix = juce::String ("tavrine ") + name + ": ";
    Options options;
    if (const juce::String error = parse (args, options); error.isNotEmpty())
    {
        err << prefix << error << "\nTry 'tavrine " << name << " --help'.\n";
        return ExitCode::usage;
    }
    if (options.action == decltype (options.action)::showHelp)
    {
        out << help;
        return ExitCode::success;
    }

    const auto result = run (options);
    if (result.code != ExitCode::success)
    {
        err << prefix << result.errorText << "\n";
        return result.code;
    }
    if (result.summary.nonFiniteSamples > 0)
        err << prefix << "warning: " << result.summary.nonFiniteSamples
            << " samples were NaN or infinite and were written as 0\n";
    warnMore (result.summary, err, prefix);
    out << result.summary.toString() << std::endl;
    return ExitCode::success;
}

bool isHelpFlag (const juce::String& arg);

// juce::String::getIntValue and getDoubleValue accept "12abc" as 12 and "abc"
// as 0; a typo must not become a number, so the whole text must parse.
bool parseWholeNumber (const juce::String& text, long long& value);
bool parseFiniteNumber (const juce::String& text, double& value);

// A path as given on the command line, relative to the working directory.
juce::File resolvePath (const juce::String& path);
} // namespace tavrineCli
