#include "support/handle_ledger.h"

#include <cstdint>

namespace test {

HandleLedger::HandleLedger()
    : openKey_([this](HKEY parent, LPCWSTR path, DWORD options, REGSAM access, PHKEY key) {
          const LSTATUS error = openKey_.Forward(parent, path, options, access, key);
          if (error == ERROR_SUCCESS) {
              Enter(Kind::RegistryKey, *key, "RegOpenKeyExW");
          }
          return error;
      }),
      createKey_([this](HKEY parent, LPCWSTR path, DWORD reserved, LPWSTR keyClass, DWORD options,
                        REGSAM access, auto* security, PHKEY key, DWORD* disposition) {
          const LSTATUS error = createKey_.Forward(parent, path, reserved, keyClass, options,
                                                   access, security, key, disposition);
          if (error == ERROR_SUCCESS) {
              Enter(Kind::RegistryKey, *key, "RegCreateKeyExW");
          }
          return error;
      }),
      closeKey_([this](HKEY key) {
          const LSTATUS error = closeKey_.Forward(key);
          Strike(Kind::RegistryKey, key, error == ERROR_SUCCESS, "RegCloseKey");
          return error;
      }),
      openManager_([this](LPCWSTR machine, LPCWSTR database, DWORD access) {
          const SC_HANDLE manager = openManager_.Forward(machine, database, access);
          if (manager != nullptr) {
              Enter(Kind::Service, manager, "OpenSCManagerW");
          }
          return manager;
      }),
      openService_([this](SC_HANDLE manager, LPCWSTR name, DWORD access) {
          const SC_HANDLE service = openService_.Forward(manager, name, access);
          if (service != nullptr) {
              Enter(Kind::Service, service, "OpenServiceW");
          }
          return service;
      }),
      closeService_([this](SC_HANDLE handle) {
          const BOOL closed = closeService_.Forward(handle);
          Strike(Kind::Service, handle, closed != FALSE, "CloseServiceHandle");
          return closed;
      }),
      openProcess_([this](DWORD access, BOOL inherit, DWORD id) {
          const HANDLE process = openProcess_.Forward(access, inherit, id);
          if (process != nullptr) {
              Enter(Kind::Kernel, process, "OpenProcess");
          }
          return process;
      }),
      openToken_([this](HANDLE process, DWORD access, PHANDLE token) {
          const BOOL opened = openToken_.Forward(process, access, token);
          if (opened && *token != nullptr) {
              Enter(Kind::Kernel, *token, "OpenProcessToken");
          }
          return opened;
      }),
      createProcess_([this](LPCWSTR application, LPWSTR commandLine, auto* processSecurity,
                            auto* threadSecurity, BOOL inherit, DWORD flags, LPVOID environment,
                            LPCWSTR directory, LPSTARTUPINFOW startup, LPPROCESS_INFORMATION info) {
          const BOOL created =
              createProcess_.Forward(application, commandLine, processSecurity, threadSecurity,
                                     inherit, flags, environment, directory, startup, info);
          if (created) {
              Enter(Kind::Kernel, info->hProcess, "CreateProcessW");
              Enter(Kind::Kernel, info->hThread, "CreateProcessW");
          }
          return created;
      }),
      createProcessAsUser_([this](HANDLE token, LPCWSTR application, LPWSTR commandLine,
                                  auto* processSecurity, auto* threadSecurity, BOOL inherit,
                                  DWORD flags, LPVOID environment, LPCWSTR directory,
                                  LPSTARTUPINFOW startup, LPPROCESS_INFORMATION info) {
          const BOOL created = createProcessAsUser_.Forward(
              token, application, commandLine, processSecurity, threadSecurity, inherit, flags,
              environment, directory, startup, info);
          if (created) {
              Enter(Kind::Kernel, info->hProcess, "CreateProcessAsUserW");
              Enter(Kind::Kernel, info->hThread, "CreateProcessAsUserW");
          }
          return created;
      }),
      createFile_([this](LPCWSTR path, DWORD access, DWORD share, auto* security, DWORD disposition,
                         DWORD flags, HANDLE pattern) {
          const HANDLE file =
              createFile_.Forward(path, access, share, security, disposition, flags, pattern);
          if (file != INVALID_HANDLE_VALUE) {
              Enter(Kind::Kernel, file, "CreateFileW");
          }
          return file;
      }),
      closeHandle_([this](HANDLE handle) {
          const BOOL closed = closeHandle_.Forward(handle);
          Strike(Kind::Kernel, handle, closed != FALSE, "CloseHandle");
          return closed;
      }),
      findFirst_([this](LPCWSTR pattern, LPWIN32_FIND_DATAW entry) {
          const HANDLE search = findFirst_.Forward(pattern, entry);
          if (search != INVALID_HANDLE_VALUE) {
              Enter(Kind::Search, search, "FindFirstFileW");
          }
          return search;
      }),
      findFirstEx_([this](LPCWSTR pattern, FINDEX_INFO_LEVELS level, LPVOID entry,
                          FINDEX_SEARCH_OPS operation, LPVOID filter, DWORD flags) {
          const HANDLE search =
              findFirstEx_.Forward(pattern, level, entry, operation, filter, flags);
          if (search != INVALID_HANDLE_VALUE) {
              Enter(Kind::Search, search, "FindFirstFileExW");
          }
          return search;
      }),
      snapshot_([this](DWORD flags, DWORD process) {
          const HANDLE snapshot = snapshot_.Forward(flags, process);
          if (snapshot != INVALID_HANDLE_VALUE) {
              Enter(Kind::Kernel, snapshot, "CreateToolhelp32Snapshot");
          }
          return snapshot;
      }),
      findClose_([this](HANDLE search) {
          const BOOL closed = findClose_.Forward(search);
          Strike(Kind::Search, search, closed != FALSE, "FindClose");
          return closed;
      }),
      registerSource_([this](LPCWSTR server, LPCWSTR source) {
          const HANDLE handle = registerSource_.Forward(server, source);
          if (handle != nullptr) {
              Enter(Kind::EventSource, handle, "RegisterEventSourceW");
          }
          return handle;
      }),
      deregisterSource_([this](HANDLE handle) {
          const BOOL closed = deregisterSource_.Forward(handle);
          Strike(Kind::EventSource, handle, closed != FALSE, "DeregisterEventSource");
          return closed;
      }),
      loadLibrary_([this](LPCWSTR name, HANDLE file, DWORD flags) {
          const HMODULE library = loadLibrary_.Forward(name, file, flags);
          if (library != nullptr) {
              Enter(Kind::Library, library, "LoadLibraryExW");
          }
          return library;
      }),
      freeLibrary_([this](HMODULE library) {
          const BOOL freed = freeLibrary_.Forward(library);
          Strike(Kind::Library, library, freed != FALSE, "FreeLibrary");
          return freed;
      }),
      initialiseCom_([this](LPVOID reserved, DWORD model) {
          const HRESULT result = initialiseCom_.Forward(reserved, model);
          if (SUCCEEDED(result)) {
              Enter(Kind::Com, reinterpret_cast<void*>(++comInitialisations_), "CoInitializeEx");
          }
          return result;
      }),
      uninitialiseCom_([this] {
          uninitialiseCom_.Forward();
          const bool balanced = comInitialisations_ > 0;
          Strike(Kind::Com, reinterpret_cast<void*>(comInitialisations_), balanced,
                 "CoUninitialize");
          comInitialisations_ -= balanced ? 1 : 0;
      }),
      formatMessage_([this](DWORD flags, LPCVOID source, DWORD message, DWORD language, LPWSTR text,
                            DWORD size, va_list* arguments) {
          const DWORD length =
              formatMessage_.Forward(flags, source, message, language, text, size, arguments);
          if (length != 0 && (flags & FORMAT_MESSAGE_ALLOCATE_BUFFER) != 0) {
              Enter(Kind::LocalMemory, *reinterpret_cast<void**>(text), "FormatMessageW");
          }
          return length;
      }),
      convertSid_([this](PSID sid, LPWSTR* text) {
          const BOOL converted = convertSid_.Forward(sid, text);
          if (converted) {
              Enter(Kind::LocalMemory, *text, "ConvertSidToStringSidW");
          }
          return converted;
      }),
      convertDescriptor_([this](PSECURITY_DESCRIPTOR descriptor, DWORD revision,
                                SECURITY_INFORMATION what, LPWSTR* text, PULONG length) {
          const BOOL converted =
              convertDescriptor_.Forward(descriptor, revision, what, text, length);
          if (converted) {
              Enter(Kind::LocalMemory, *text,
                    "ConvertSecurityDescriptorToStringSecurityDescriptorW");
          }
          return converted;
      }),
      localFree_([this](HLOCAL memory) {
          const HLOCAL left = localFree_.Forward(memory);
          Strike(Kind::LocalMemory, memory, left == nullptr, "LocalFree");
          return left;
      }),
      allocateString_([this](const OLECHAR* text) {
          const BSTR string = allocateString_.Forward(text);
          if (string != nullptr) {
              Enter(Kind::String, string, "SysAllocString");
          }
          return string;
      }),
      freeString_([this](BSTR string) {
          freeString_.Forward(string);
          Strike(Kind::String, string, /*released=*/true, "SysFreeString");
      }) {}

void HandleLedger::Enter(Kind kind, void* handle, const char* opener) {
    ++opened_;
    open_[{kind, handle}].push_back(opener);
}

void HandleLedger::Strike(Kind kind, void* handle, bool released, const char* releaser) {
    if (!released) {
        refused_.push_back(std::string(releaser) + " refused");
        return;
    }
    // The same functions release handles of kinds that the product does not use.
    const auto entry = open_.find({kind, handle});
    if (entry == open_.end()) {
        return;
    }
    entry->second.pop_back();
    if (entry->second.empty()) {
        open_.erase(entry);
    }
}

std::vector<std::string> HandleLedger::Findings() const {
    std::vector<std::string> findings = refused_;
    for (const auto& [handle, openers] : open_) {
        for (const char* opener : openers) {
            findings.push_back(std::string("never released: handle of ") + opener);
        }
    }
    return findings;
}

}  // namespace test
