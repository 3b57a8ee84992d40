#include "EndpointWatch.h"

#include "OpenMetrics.h"

#include "common/Printable.h"

#include <fmt/format.h>

#include <curl/curl.h>

#include <cmath>
#include <memory>

namespace tivra_top {

namespace {

constexpr std::size_t kMostBytes = 4U << 20U;
constexpr std::size_t kMostRows = 20'000;
constexpr long kSecondsForAnAnswer = 5;

using Handle = std::unique_ptr<CURL, void (*)(CURL*)>;

/// Takes nothing any more, which ends the transfer, once there is too much.
std::size_t onData(const char* bytes, std::size_t size, std::size_t count, void* text) {
    auto& all = *static_cast<std::string*>(text);
    if (all.size() + size * count > kMostBytes)
        return 0;
    all.append(bytes, size * count);
    return size * count;
}

int onProgress(void* isClosing, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
    return static_cast<const std::atomic<bool>*>(isClosing)->load() ? 1 : 0;
}

/// Empty when the answer is in `text`, else what is wrong.
std::string fetch(CURL* handle, std::string& text) {
    curl_easy_setopt(handle, CURLOPT_WRITEDATA, &text);
    const CURLcode result = curl_easy_perform(handle);
    if (result == CURLE_WRITE_ERROR)
        return fmt::format("answers with more than {} bytes", kMostBytes);
    if (result != CURLE_OK)
        return curl_easy_strerror(result);
    long status = 0;
    curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &status);
    return status == 200 ? std::string() : fmt::format("answers with HTTP status {}", status);
}

/// The URL as it may be shown, without a user and a password.
std::string withoutUser(const std::string& url) {
    const std::unique_ptr<CURLU, void (*)(CURLU*)> parts(curl_url(), curl_url_cleanup);
    char* text = nullptr;
    if (curl_url_set(parts.get(), CURLUPART_URL, url.c_str(), CURLU_GUESS_SCHEME) != CURLUE_OK ||
        curl_url_set(parts.get(), CURLUPART_USER, nullptr, 0) != CURLUE_OK ||
        curl_url_set(parts.get(), CURLUPART_PASSWORD, nullptr, 0) != CURLUE_OK ||
        curl_url_get(parts.get(), CURLUPART_URL, &text, 0) != CURLUE_OK)
        return "not a URL";
    const std::unique_ptr<char, void (*)(void*)> owned(text, curl_free);
    return owned.get();
}

} // namespace

EndpointWatch::EndpointWatch(Endpoint endpoint)
    : m_endpoint(std::move(endpoint)), m_thread([this] { ask(); }) {}

EndpointWatch::~EndpointWatch() {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_isClosing = true;
    }
    m_closing.notify_all();
    m_thread.join();
}

void EndpointWatch::ask() {
    const Handle handle(curl_easy_init(), [](CURL* each) { curl_easy_cleanup(each); });
    CURL* const curl = handle.get();
    curl_easy_setopt(curl, CURLOPT_URL, m_endpoint.url.c_str());
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
    if (!m_endpoint.caFile.empty())
        curl_easy_setopt(curl, CURLOPT_CAINFO, m_endpoint.caFile.c_str());
    if (!m_endpoint.token.empty()) {
        curl_easy_setopt(curl, CURLOPT_HTTPAUTH, CURLAUTH_BEARER);
        curl_easy_setopt(curl, CURLOPT_XOAUTH2_BEARER, m_endpoint.token.c_str());
    }
    curl_easy_setopt(curl, CURLOPT_PROXY, ""); // it is a machine of the house
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
#if LIBCURL_VERSION_NUM >= 0x075700
    curl_easy_setopt(curl, CURLOPT_QUICK_EXIT, 1L); // a resolver that hangs must not hold up the end
#endif
    curl_easy_setopt(curl, CURLOPT_TIMEOUT, kSecondsForAnAnswer);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, onData);
    curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
    curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, onProgress);
    curl_easy_setopt(curl, CURLOPT_XFERINFODATA, &m_isClosing);
    std::string before = "?";
    while (!m_isClosing) {
        std::string text;
        const std::string fault = fetch(curl, text);
        if (fault != before && !m_isClosing)
            m_log.add(
                {std::chrono::system_clock::now(), !fault.empty(),
                 fault.empty() ? "the endpoint answers" : "the endpoint: " + tivra_tools::printable(fault)});
        before = fault;
        if (fault.empty())
            take(text, std::chrono::system_clock::now());
        std::unique_lock<std::mutex> lock(m_mutex);
        m_isThere = fault.empty();
        m_closing.wait_for(lock, std::chrono::seconds(1), [this] { return m_isClosing.load(); });
    }
}

bool EndpointWatch::isAnswered() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_isThere && m_answers >= 2;
}

void EndpointWatch::take(const std::string& text, TimePoint arrival) {
    std::size_t faults = 0;
    double total = 0.0;
    std::vector<Row> rows;
    for (const Metric& metric : parseOpenMetrics(text, kMostRows, faults)) {
        Row row;
        row.name = tivra_tools::printable(
            (metric.name.rfind("tivra_", 0) == 0 ? metric.name.substr(6) : metric.name) + metric.labels);
        row.cells = {{metric.text, metric.value, 0}};
        if (metric.isCounter() && metric.value >= 0.0 && metric.value < 1e18)
            row.updates = static_cast<std::uint64_t>(metric.value);
        if (metric.name == "tivra_feed_updates_total" || metric.name == "tivra_in_messages_total")
            total += metric.value;
        rows.push_back(std::move(row));
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_rows.replaceAll(std::move(rows), arrival);
    m_rows.measure(arrival);
    m_figures.leftOut = faults;
    m_figures.updates = total >= 0.0 && total < 1e18 ? static_cast<std::uint64_t>(total) : 0;
    m_figures.rate = m_meter.take(arrival, m_figures.updates);
    ++m_answers;
}

Picture EndpointWatch::picture() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    Picture picture = m_figures;
    picture.time = std::chrono::system_clock::now();
    picture.title = tivra_tools::printable(withoutUser(m_endpoint.url));
    picture.state = m_isThere ? tivra::FeedState::Established : tivra::FeedState::Connecting;
    picture.columns = {"VALUE"};
    picture.rows = m_rows.rows(picture.time);
    for (Row& row : picture.rows)
        row.state = m_isThere ? tivra::DataState::Live : tivra::DataState::Stale;
    picture.log = m_log.entries();
    return picture;
}

} // namespace tivra_top
