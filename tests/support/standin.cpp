/*
 * A stand-in for any program that the updater starts: the client, an installer, a system command. A
 * test copies it under the name wanted and reads afterwards what it was started with.
 *
 * Beside its own file PROGRAM it appends to PROGRAM.calls one line a start: its arguments, each in
 * hexadecimal UTF-8 and followed by a blank. If a file PROGRAM.script exists, its lines tell what
 * to do then, in order:
 *
 *     "stdout HEX"   write these bytes to the standard output
 *     "stay"         run until killed, or until PROGRAM.script is gone
 *     "exit N"       end with this code
 *
 * Free of libraries, so that a copy runs anywhere.
 */
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <shellapi.h>
#endif

namespace fs = std::filesystem;

namespace
{

struct Start {
    fs::path program;
    std::vector<std::string> arguments; // UTF-8
};

#ifdef _WIN32
std::string ToUtf8(const wchar_t *text)
{
    const int size = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    std::string result(size_t(size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text, -1, result.data(), size, nullptr, nullptr);
    result.pop_back();
    return result;
}

Start ReadStart(int, char **)
{
    _setmode(_fileno(stdout), _O_BINARY);
    wchar_t path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    int count = 0;
    wchar_t **arguments = CommandLineToArgvW(GetCommandLineW(), &count);
    Start start{path, {}};
    for (int i = 1; i < count; ++i)
        start.arguments.push_back(ToUtf8(arguments[i]));
    LocalFree(arguments);
    return start;
}
#else
Start ReadStart(int argc, char **argv)
{
    return {fs::read_symlink("/proc/self/exe"), {argv + 1, argv + argc}};
}
#endif

std::string Hex(const std::string &bytes)
{
    std::string hex;
    char digits[3];
    for (const char byte : bytes) {
        std::snprintf(digits, sizeof digits, "%02x", unsigned(static_cast<unsigned char>(byte)));
        hex += digits;
    }
    return hex;
}

void WriteHex(const std::string &hex)
{
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
        std::putchar(int(std::strtoul(hex.substr(i, 2).c_str(), nullptr, 16)));
    std::fflush(stdout);
}

void RecordCall(const Start &start)
{
    std::string line;
    for (const std::string &argument : start.arguments)
        line += Hex(argument) + ' ';
    fs::path calls = start.program;
    calls += ".calls";
    std::ofstream(calls, std::ios::app | std::ios::binary) << line + '\n';
}

} // namespace

int main(int argc, char **argv)
{
    const Start start = ReadStart(argc, argv);
    fs::path scriptPath = start.program;
    scriptPath += ".script";
    // Read whole and closed: Windows would not let the test remove an open file.
    std::stringstream script;
    script << std::ifstream(scriptPath).rdbuf();
    RecordCall(start);

    std::string verb;
    while (script >> verb) {
        std::string value;
        if (verb == "stdout" && script >> value) {
            WriteHex(value);
        } else if (verb == "stay") {
            while (fs::exists(scriptPath))
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
        } else if (verb == "exit" && script >> value) {
            return std::atoi(value.c_str());
        }
    }
    return 0;
}
