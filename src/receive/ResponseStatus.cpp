// What a read handler does with a message that carries a status.
#include "receive/QueueReadHandler.h"

#include <tp/eprintf.h>

#include "receive/LibraryTags.h"
#include "receive/ReadHandlerHub.h"
#include "receive/ReadHandlerSession.h"

namespace tivra_internal {
namespace {

constexpr int64_t kNotCarried = -220;
constexpr int64_t kNotCarriedThroughManager = -12;
constexpr int64_t kNotAllXrefHubs = -225;

} // namespace

bool QueueReadHandler::settleStatus(Incoming& in) {
    if (in.hasTag)
        return settleResponse(in);
    translateStatus(in);
    if (in.status != 0)
        eprintf(EPF_WARN, "rc=%ld (%s): no tag received", static_cast<long>(in.status),
                m_session.getRetCodeDesc(static_cast<int>(in.status)));
    return true;
}

bool QueueReadHandler::settleResponse(Incoming& in) {
    const auto tagForLog = static_cast<long long>(in.tag);
    if (m_session.isCMconnection() && m_session.isTagAwaitingXrefHubs(in.tag)) {
        eprintf(EPF_WARN,
                "Change return code rc=%ld to -225 as all xref hubs are not connected for request tag %lld",
                static_cast<long>(in.status), tagForLog);
        rewriteStatus(in, kNotAllXrefHubs);
    }
    const std::string hub = m_hubClient.getHubAddr();
    const char* const description = m_session.getRetCodeDesc(static_cast<int>(in.status));
    eprintf(EPF_DBUG, "%s: rc=%ld (%s) for request tag %lld", hub.c_str(), static_cast<long>(in.status),
            description, tagForLog);
    if (in.tag == kReportApiStatisticsTag) {
        if (in.status != 0)
            eprintf(EPF_WARN, "%s: rc=%ld (%s) for request tag %lld (ReportApiStats)", hub.c_str(),
                    static_cast<long>(in.status), description, tagForLog);
        return false;
    }
    if (m_watchlistInUse && m_hubClient.handleWatchlistResponse(in.tag, in.status))
        return false;
    if (m_stream != nullptr) {
        beginConnection();
        if (in.status >= 0)
            m_stream->hubAnswered(in.tag);
    }
    noteRefusal(in);
    if (m_session.suppressResponse(in.tag, in.msg, m_statusTok, in.msg.findPair(m_statusTok), &MetaMap,
                                   m_hubClient.client()))
        return false;
    // Merging may have rewritten the status or, when more answers follow, taken it out.
    readStatus(in);
    translateStatus(in);
    if (in.hasStatus && in.status != 0)
        eprintf(EPF_DBUG, "rc=%ld (%s) for request tag %lld", static_cast<long>(in.status),
                m_session.getRetCodeDesc(static_cast<int>(in.status)), tagForLog);
    return true;
}

/// Of the merged answer nobody can tell which hub it was.
void QueueReadHandler::noteRefusal(const Incoming& in) {
    if (m_stream != nullptr && in.status < 0)
        m_stream->hubRefused(in.tag, in.status);
}

/// What the application is to see of a merged status. Not before: merging tells a hub that lacks a news item
/// by its code.
void QueueReadHandler::translateStatus(Incoming& in) noexcept {
    if (!in.hasStatus || in.status != kNotCarried || !m_session.isCMconnection())
        return;
    eprintf(EPF_DBUG, "Change return code -220 to -12 for CM connection");
    rewriteStatus(in, kNotCarriedThroughManager);
}

void QueueReadHandler::rewriteStatus(Incoming& in, int64_t status) noexcept {
    in.status = status;
    KVNAPI::TVPair* const pair = in.msg.findPair(m_statusTok);
    if (pair != nullptr)
        pair->setI(m_statusTok, status);
}

} // namespace tivra_internal
