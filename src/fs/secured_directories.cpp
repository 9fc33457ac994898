#include "fs/secured_directories.h"

#include "config/path_resolvers.h"
#include "config/service_parameters.h"

#include <cstdint>

namespace {

constexpr SecurityId Administrators = {
    SID_REVISION, 2, SECURITY_NT_AUTHORITY, {SECURITY_BUILTIN_DOMAIN_RID, DOMAIN_ALIAS_RID_ADMINS}};
constexpr SecurityId LocalSystem = {
    SID_REVISION, 1, SECURITY_NT_AUTHORITY, {SECURITY_LOCAL_SYSTEM_RID}};
constexpr SecurityId Users = {
    SID_REVISION, 2, SECURITY_NT_AUTHORITY, {SECURITY_BUILTIN_DOMAIN_RID, DOMAIN_ALIAS_RID_USERS}};

constexpr std::uint32_t Inherited = OBJECT_INHERIT_ACE | CONTAINER_INHERIT_ACE;
constexpr std::uint32_t ReadAndRun = GENERIC_READ | GENERIC_EXECUTE;

const std::vector<AceSpec> ForTheSystem = {
    {Inherited, GENERIC_ALL, Administrators},
    {Inherited, GENERIC_ALL, LocalSystem},
};
const std::vector<AceSpec> ForTheSystemAndReaders = {
    {Inherited, GENERIC_ALL, Administrators},
    {Inherited, GENERIC_ALL, LocalSystem},
    {Inherited, ReadAndRun, Users},
};

}  // namespace

const std::vector<SecuredDirectory> SecuredDirectoryTable = {
    {ForTheSystem, true, ProductDataDirectory, {}},
    {ForTheSystem, true, L"", ConfigurationFilesResolver},
    {ForTheSystemAndReaders, true, L"", ImageCacheResolver},
    {ForTheSystem, true, L"", ActivityLogResolver},
};
