// SPDX-License-Identifier: MIT
/*
 * A stand-in for a program that the updater starts: the client, an installer or a system command. A
 * test copies it to the path of that program and later reads how it was started.
 *
 * Each start of PROGRAM appends a line to the file PROGRAM.calls: the arguments in hexadecimal
 * UTF-8, each followed by a blank. Then the commands in the file PROGRAM.script are executed, if
 * there is one:
 *
 *     "stdout HEX"   write these bytes to stdout
 *     "stay"         run until killed or until PROGRAM.script is removed
 *     "exit N"       exit with this code
 *
 * It needs no shared libraries, so a copy runs anywhere.
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
    // Closed at once, because Windows does not remove open files.
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
