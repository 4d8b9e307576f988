#include "fake_client.h"

#include "common/strings/strings.h"

#include <cstring>
#include <stdexcept>

using namespace specific::oracle;
using namespace specific::oracle::oci;

namespace oracle_client_test {

namespace {

SFakeClient* g_fake = nullptr;

struct SDefine {
    char* buffer;
    sb4 size;
    sb2* indicator;
};

std::vector<SDefine> g_defines;
size_t g_fetches = 0;

void* new_handle(ub4 type)
{
    ++g_fake->liveHandles;
    g_fake->calls.push_back("alloc " + util::int_to_str(type));
    return new char[8];
}

sword EnvCreate(OCIEnv** env, ub4, void*, void* (*)(void*, size_t), void* (*)(void*, void*, size_t),
                void (*)(void*, void*), size_t, void**)
{
    *env = static_cast<OCIEnv*>(new_handle(OCI_HTYPE_ENV));
    return OCI_SUCCESS;
}

sword HandleAlloc(const void*, void** handle, ub4 type, size_t, void**)
{
    *handle = new_handle(type);
    return OCI_SUCCESS;
}

sword HandleFree(void* handle, ub4 type)
{
    g_fake->calls.push_back("free " + util::int_to_str(type));
    --g_fake->liveHandles;
    delete[] static_cast<char*>(handle);
    return OCI_SUCCESS;
}

sword ServerAttach(OCIServer*, OCIError*, const OraText*, sb4, ub4)
{
    g_fake->calls.push_back("attach");
    return OCI_SUCCESS;
}

sword AttrSet(void*, ub4, void*, ub4, ub4 attribute, OCIError*)
{
    g_fake->calls.push_back("attr " + util::int_to_str(attribute));
    return OCI_SUCCESS;
}

sword SessionBegin(OCISvcCtx*, OCIError*, OCISession*, ub4, ub4 mode)
{
    g_fake->calls.push_back("begin " + util::int_to_str(mode));
    return OCI_SUCCESS;
}

sword SessionEnd(OCISvcCtx*, OCIError*, OCISession*, ub4)
{
    g_fake->calls.push_back("end");
    return OCI_SUCCESS;
}

sword ServerDetach(OCIServer*, OCIError*, ub4)
{
    g_fake->calls.push_back("detach");
    return OCI_SUCCESS;
}

sword StmtPrepare(OCIStmt*, OCIError*, const OraText* text, ub4 length, ub4, ub4)
{
    g_fake->calls.push_back("prepare " + std::string(reinterpret_cast<const char*>(text), length));
    g_defines.clear();
    g_fetches = 0;
    return g_fake->prepareResult;
}

sword DefineByPos(OCIStmt*, OCIDefine** define, OCIError*, ub4 position, void* buffer, sb4 size,
                  ub2 dty, void* indicator, ub2*, ub2*, ub4)
{
    g_fake->calls.push_back("define " + util::int_to_str(position) + " size=" +
                            util::int_to_str(size) + " dty=" + util::int_to_str(uint32_t(dty)));
    g_defines.push_back({static_cast<char*>(buffer), size, static_cast<sb2*>(indicator)});
    *define = static_cast<OCIDefine*>(new_handle(OCI_HTYPE_DEFINE));
    return OCI_SUCCESS;
}

sword BindByName(OCIStmt*, OCIBind**, OCIError*, const OraText* name, sb4, void*, sb4 size, ub2 dty,
                 void*, ub2*, ub2*, ub4, ub4*, ub4)
{
    g_fake->calls.push_back("bind " + std::string(reinterpret_cast<const char*>(name)) + " size=" +
                            util::int_to_str(size) + " dty=" + util::int_to_str(uint32_t(dty)));
    return OCI_SUCCESS;
}

sword StmtExecute(OCISvcCtx*, OCIStmt*, OCIError*, ub4 iters, ub4, const OCISnapshot*,
                  OCISnapshot*, ub4)
{
    g_fake->calls.push_back("execute iters=" + util::int_to_str(iters));
    return g_fake->executeResult;
}

sword StmtFetch2(OCIStmt*, OCIError*, ub4, ub2, sb4, ub4)
{
    g_fake->calls.push_back("fetch");
    ++g_fetches;
    if (g_fetches == g_fake->failFetchAt)
        return OCI_ERROR;
    if (g_fetches > g_fake->rows.size())
        return OCI_NO_DATA;
    const auto& row = g_fake->rows[g_fetches - 1];
    for (size_t i = 0; i < g_defines.size() && i < row.size(); ++i) {
        const SDefine& define = g_defines[i];
        if (!row[i]) {
            *define.indicator = -1;
            continue;
        }
        const std::string& value = *row[i];
        const size_t room = static_cast<size_t>(define.size) - 1;
        const size_t length = value.size() < room ? value.size() : room;
        std::memcpy(define.buffer, value.data(), length);
        define.buffer[length] = '\0';
        *define.indicator = value.size() > room ? static_cast<sb2>(value.size()) : 0;
    }
    return OCI_SUCCESS;
}

sword ErrorGet(void*, ub4, OraText*, sb4* code, OraText* buffer, ub4 size, ub4)
{
    g_fake->calls.push_back("errorget");
    *code = g_fake->errorCode;
    const size_t length = g_fake->errorText.size() < size - 1 ? g_fake->errorText.size() : size - 1;
    std::memcpy(buffer, g_fake->errorText.data(), length);
    buffer[length] = '\0';
    return OCI_SUCCESS;
}

sword DBStartup(OCISvcCtx*, OCIError*, OCIAdmin*, ub4, ub4)
{
    g_fake->calls.push_back("startup");
    return OCI_SUCCESS;
}

sword DBShutdown(OCISvcCtx*, OCIError*, OCIAdmin*, ub4 mode)
{
    g_fake->calls.push_back("shutdown " + util::int_to_str(mode));
    return OCI_SUCCESS;
}

} // namespace

SFakeClient::SFakeClient()
{
    if (g_fake != nullptr)
        throw std::logic_error("one fake client at a time");
    g_fake = this;
}

SFakeClient::~SFakeClient()
{
    g_fake = nullptr;
}

std::shared_ptr<CWinOraInterface> SFakeClient::Ora() const
{
    SOciFunctions fn;
    fn.EnvCreate = &EnvCreate;
    fn.HandleAlloc = &HandleAlloc;
    fn.HandleFree = &HandleFree;
    fn.ServerAttach = &ServerAttach;
    fn.AttrSet = &AttrSet;
    fn.SessionBegin = &SessionBegin;
    fn.SessionEnd = &SessionEnd;
    fn.ServerDetach = &ServerDetach;
    fn.StmtPrepare = &StmtPrepare;
    fn.DefineByPos = &DefineByPos;
    fn.BindByName = &BindByName;
    fn.StmtExecute = &StmtExecute;
    fn.StmtFetch2 = &StmtFetch2;
    fn.ErrorGet = &ErrorGet;
    fn.DBStartup = &DBStartup;
    fn.DBShutdown = &DBShutdown;
    return std::make_shared<CWinOraInterface>(fn, L"fake");
}

std::shared_ptr<COracleSession> SFakeClient::Session() const
{
    auto session = std::make_shared<COracleSession>(SOracleCredentials{});
    session->env = COracleEnv::Create(Ora());
    session->serviceContext = COracleHandle::Alloc(session->env, OCI_HTYPE_SVCCTX);
    session->server = COracleHandle::Alloc(session->env, OCI_HTYPE_SERVER);
    session->session = COracleHandle::Alloc(session->env, OCI_HTYPE_SESSION);
    session->valid = true;
    session->serverAttached = true;
    return session;
}

} // namespace oracle_client_test
