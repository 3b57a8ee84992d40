// What an application's code may and may not do with the public types, settled when this file compiles.
#include <type_traits>

#include <gtest/gtest.h>
#include <tivra.h>

namespace {

using namespace tivra;

template<class Handle>
constexpr bool isHandedOutOnly =
    !std::is_copy_constructible_v<Handle> && !std::is_move_constructible_v<Handle> &&
    !std::is_copy_assignable_v<Handle> && !std::is_move_assignable_v<Handle> &&
    !std::is_default_constructible_v<Handle> && !std::is_destructible_v<Handle> &&
    sizeof(Handle) == sizeof(void*);

static_assert(isHandedOutOnly<Session> && isHandedOutOnly<SessionConfig> &&
              isHandedOutOnly<ConnectionConfig> && isHandedOutOnly<HostConfig> && isHandedOutOnly<UserInfo> &&
              isHandedOutOnly<Request> && isHandedOutOnly<SessionEvent> && isHandedOutOnly<UserEvent> &&
              isHandedOutOnly<StatisticsEvent> && isHandedOutOnly<MessageEvent> &&
              isHandedOutOnly<MessageReader>);
static_assert(!std::is_default_constructible_v<APIFactory> && !std::is_copy_constructible_v<APIFactory>);
static_assert(std::has_virtual_destructor_v<SessionEventHandler> &&
              std::has_virtual_destructor_v<UserEventHandler> &&
              std::has_virtual_destructor_v<MessageEventHandler> &&
              std::has_virtual_destructor_v<StatisticsEventHandler>);
static_assert(std::is_trivially_copyable_v<DateTime> && std::is_nothrow_default_constructible_v<DateTime>);

template<class Config, class Parameter, class Value, class = void>
constexpr bool canSet = false;
template<class Config, class Parameter, class Value>
constexpr bool canSet<
    Config, Parameter, Value,
    std::void_t<decltype(std::declval<Config&>().set(std::declval<Parameter>(), std::declval<Value>()))>> =
    true;

// A plain int literal must work; a text or a null pointer must not turn into a bool.
static_assert(canSet<SessionConfig, SessionConfig::Parameters, int> &&
              canSet<SessionConfig, SessionConfig::Parameters, long> &&
              canSet<SessionConfig, SessionConfig::Parameters, bool> &&
              !canSet<SessionConfig, SessionConfig::Parameters, const char*> &&
              !canSet<SessionConfig, SessionConfig::Parameters, std::nullptr_t> &&
              !canSet<SessionConfig, HostConfig::Parameters, int>);
static_assert(canSet<ConnectionConfig, HostConfig::Parameters, int> &&
              !canSet<ConnectionConfig, HostConfig::Parameters, const char*>);
static_assert(canSet<HostConfig, HostConfig::Parameters, int> &&
              !canSet<HostConfig, HostConfig::Parameters, const char*>);

template<class Value, class = void>
constexpr bool canAdd = false;
template<class Value>
constexpr bool
    canAdd<Value, std::void_t<decltype(std::declval<Request&>().add(SYMBOL_TICKER, std::declval<Value>())),
                              decltype(std::declval<Request&>().add(5, std::declval<Value>()))>> = true;
static_assert(canAdd<int> && canAdd<int64_t> && canAdd<const char*> && canAdd<std::string>);
static_assert(!canAdd<std::nullptr_t>);

// The engine passes a state on as an event, and these numbers go over the wire.
static_assert(int{Session::TIVRA_SESSION_UNAVAILABLE} == int{SessionEvent::TIVRA_SESSION_UNAVAILABLE} &&
              int{Session::TIVRA_SESSION_ESTABLISHED} == int{SessionEvent::TIVRA_SESSION_ESTABLISHED} &&
              int{Session::TIVRA_SESSION_RECOVERY} == int{SessionEvent::TIVRA_SESSION_RECOVERY});
static_assert(SETL2CONFLATIONINTERVAL == 23 && QUERY_REF_TAG == 5052 && KVN_TOKEN_NUM == 5035);

TEST(PublicTypes, DateAndTimeKeepWhatTheyAreGiven) {
    Date date;
    date.setdate(12, 31, 9999);
    EXPECT_EQ(date.month() * 1000000 + date.day() * 10000 + date.year(), 12 * 1000000 + 31 * 10000 + 9999);
    Time time;
    time.settime(23, 59, 58, 999, 998, 997);
    EXPECT_EQ(time.hour() * 10000 + time.minute() * 100 + time.second(), 235958);
    EXPECT_EQ(time.millisecond(), 999);
    EXPECT_EQ(time.microsecond(), 998);
    EXPECT_EQ(time.nanosecond(), 997);
}

} // namespace
