// A machine root of a benchmark program's own for the whole run, with the simulated storage
// service served in the program's process and tracing off.
#pragma once

#include "diag/trace.h"
#include "sim/storage/storagesim.h"

#include "pal/objbase.h"
#include "pal/palcontrol.h"

#include <cstdlib>
#include <filesystem>
#include <string>

class BenchMachine
{
public:
    explicit BenchMachine(const char* pszName)
    {
        std::string pattern =
            (std::filesystem::temp_directory_path() / (std::string(pszName) + "-XXXXXX")).string();
        if (mkdtemp(pattern.data()))
            m_root = pattern;
        setenv("ORVSIM_ROOT", m_root.c_str(), 1);
        pal::CaptureDebugOutput(true);
        TraceSetLevel(0);
        CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    }
    ~BenchMachine()
    {
        m_service.Stop();
        CoUninitialize();
        std::error_code ec;
        std::filesystem::remove_all(m_root, ec);
    }
    BenchMachine(const BenchMachine&) = delete;
    BenchMachine& operator=(const BenchMachine&) = delete;

    // Replaces the storage state with the topology (empty: the default) and starts the service.
    HRESULT Start(const std::string& topology)
    {
        m_service.Stop();
        HRESULT hr = storagesim::InitializeState(topology, "");
        return SUCCEEDED(hr) ? m_service.Start() : hr;
    }

private:
    std::string m_root;
    storagesim::CStorageService m_service;
};
