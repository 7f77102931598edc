#include <iostream>

#include "cli/RenderCommand.h"
#include "cli/StretchCommand.h"

namespace
{
void printUsage (std::ostream& stream)
{
    stream << "Usage: tavrine <command> [options]\n"
              "\n"
              "Commands:\n"
              "  render    play MIDI into the player offline and write a WAV file\n"
              "  stretch   change the length and pitch of an audio file offline\n"
              "\n"
              "'tavrine <command> --help' describes a command.\n";
}

int toStatus (tavrineCli::ExitCode code)
{
    return static_cast<int> (code);
}
} // namespace

int main (int argc, char* argv[])
{
    juce::StringArray args;
    for (int i = 1; i < argc; ++i)
        args.add (juce::String::fromUTF8 (argv[i]));

    if (args.isEmpty())
    {
        printUsage (std::cerr);
        return toStatus (tavrineCli::ExitCode::usage);
    }

    const auto command = args[0];
    args.remove (0);

    if (command == "--help" || command == "-h" || command == "help")
    {
        printUsage (std::cout);
        return toStatus (tavrineCli::ExitCode::success);
    }

    if (command == "render")
    {
        // The processor needs the message manager; this thread is the message thread.
        const juce::ScopedJuceInitialiser_GUI juceInitialiser;
        try
        {
            return toStatus (tavrineCli::runRenderCommand (args, std::cout, std::cerr));
        }
        catch (const std::exception& e)
        {
            std::cerr << "tavrine render: internal error: " << e.what() << "\n";
            return toStatus (tavrineCli::ExitCode::internalError);
        }
    }

    if (command == "stretch")
    {
        // Files and the stretch library only: no message manager is needed.
        try
        {
            return toStatus (tavrineCli::runStretchCommand (args, std::cout, std::cerr));
        }
        catch (const std::exception& e)
        {
            std::cerr << "tavrine stretch: internal error: " << e.what() << "\n";
            return toStatus (tavrineCli::ExitCode::internalError);
        }
    }

    std::cerr << "tavrine: unknown command '" << command << "'\n";
    printUsage (std::cerr);
    return toStatus (tavrineCli::ExitCode::usage);
}
