// SPDX-License-Identifier: MIT
/*
 * Prints the task list as CSV, because the tasklist of Wine prints nothing. Takes the arguments
 * that the updater uses: /FO CSV /FI "IMAGENAME eq NAME".
 */
#include <cstdio>
#include <cwchar>
#include <string>
#include <windows.h>

#include <psapi.h>
#include <tlhelp32.h>

namespace
{

const wchar_t kFilter[] = L"IMAGENAME eq ";

/// The image name in the filter; empty without a filter.
std::wstring WantedName(int argc, wchar_t **argv)
{
    for (int i = 1; i + 1 < argc; ++i) {
        if (_wcsicmp(argv[i], L"/FI") == 0 && _wcsnicmp(argv[i + 1], kFilter, wcslen(kFilter)) == 0)
            return argv[i + 1] + wcslen(kFilter);
    }
    return {};
}

/// In the encoding of console output.
std::string Printed(const wchar_t *text)
{
    char bytes[MAX_PATH * 4] = {};
    WideCharToMultiByte(CP_OEMCP, 0, text, -1, bytes, sizeof bytes, nullptr, nullptr);
    return bytes;
}

unsigned long MemoryInKilobytes(DWORD processId)
{
    PROCESS_MEMORY_COUNTERS counters = {};
    const HANDLE process = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, processId);
    if (process != nullptr) {
        GetProcessMemoryInfo(process, &counters, sizeof counters);
        CloseHandle(process);
    }
    return static_cast<unsigned long>(counters.WorkingSetSize / 1024);
}

} // namespace

int wmain(int argc, wchar_t **argv)
{
    const std::wstring wanted = WantedName(argc, argv);
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    PROCESSENTRY32W entry = {};
    entry.dwSize = sizeof entry;
    int found = 0;
    for (BOOL more = Process32FirstW(snapshot, &entry); more;
         more = Process32NextW(snapshot, &entry)) {
        if (!wanted.empty() && _wcsicmp(entry.szExeFile, wanted.c_str()) != 0)
            continue;
        if (found++ == 0)
            std::puts("\"Image Name\",\"PID\",\"Session Name\",\"Session#\",\"Mem Usage\"");
        std::printf("\"%s\",\"%lu\",\"Console\",\"1\",\"%lu K\"\n",
                    Printed(entry.szExeFile).c_str(), entry.th32ProcessID,
                    MemoryInKilobytes(entry.th32ProcessID));
    }
    CloseHandle(snapshot);
    if (found == 0)
        std::puts("INFO: No tasks are running which match the specified criteria.");
    return 0;
}
