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

} // namespace

EndpointWatch::EndpointWatch(std::string url) : m_url(std::move(url)), m_thread([this] { ask(); }) {}

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
    curl_easy_setopt(curl, CURLOPT_URL, m_url.c_str());
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(curl, CURLOPT_PROXY, ""); // it is a machine of the house
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
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
        std::unique_lock<std::mutex> lock(m_mutex);
        m_isThere = fault.empty();
        if (m_isThere)
            m_text = std::move(text);
        m_closing.wait_for(lock, std::chrono::seconds(1), [this] { return m_isClosing.load(); });
    }
}

bool EndpointWatch::isAnswered() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_isThere;
}

void EndpointWatch::takeText(Picture& picture, const std::string& text) {
    std::size_t faults = 0;
    double total = 0.0;
    for (const Metric& metric : parseOpenMetrics(text, kMostRows, faults)) {
        Row row;
        row.name = tivra_tools::printable(
            (metric.name.rfind("tivra_", 0) == 0 ? metric.name.substr(6) : metric.name) + metric.labels);
        row.state = m_isLost ? tivra::DataState::Stale : tivra::DataState::Live;
        row.cells = {{metric.text, metric.value, 0}};
        if (metric.isCounter() && metric.value >= 0.0 && metric.value < 1e18)
            row.updates = static_cast<std::uint64_t>(metric.value);
        if (metric.name == "tivra_feed_updates_total" || metric.name == "tivra_in_messages_total")
            total += metric.value;
        if (m_rows.has(row.name) || m_rows.size() < kMostRows)
            m_rows.put(std::move(row), picture.time);
    }
    picture.leftOut = faults;
    picture.updates = total >= 0.0 && total < 1e18 ? static_cast<std::uint64_t>(total) : 0;
    picture.rate = m_rate.take(picture.time, picture.updates);
}

Picture EndpointWatch::picture() {
    Picture picture;
    std::string text;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        text = m_text;
        m_isLost = !m_isThere;
    }
    picture.time = std::chrono::system_clock::now();
    picture.title = tivra_tools::printable(m_url);
    picture.state = m_isLost ? tivra::FeedState::Connecting : tivra::FeedState::Established;
    picture.columns = {"VALUE"};
    takeText(picture, text);
    picture.rows = m_rows.rows(picture.time);
    picture.log = m_log.entries();
    return picture;
}

} // namespace tivra_top
