#include <string>

#include <nanobind/nanobind.h>
#include <nanobind/stl/string.h>

#include <feed/FeedOptions.h>

#include "Bindings.h"
#include "Callable.h"
#include "Errors.h"
#include "Statuses.h"
#include "Values.h"

namespace nb = nanobind;

namespace tivra_python {
namespace {

using tivra::FeedOptions;

void onState(FeedOptions& options, const nb::object& function) {
    options.onState = [call = Callable(function)](const tivra::FeedStateChange& change) {
        call.call([&] {
            return nb::make_tuple(static_cast<int>(change.from), static_cast<int>(change.to),
                                  toStr(change.cause), toDatetime(change.time));
        });
    };
}

void onConnection(FeedOptions& options, const nb::object& function) {
    options.onConnection = [call = Callable(function)](const tivra::ConnectionEvent& event) {
        call.call([&] { return nb::make_tuple(toHubDict(event)); });
    };
}

void onError(FeedOptions& options, const nb::object& function) {
    options.onError = [call = Callable(function)](const tivra::Error& error) {
        call.call([&] { return nb::make_tuple(makeException(error)); });
    };
}

void onSlowCallback(FeedOptions& options, const nb::object& function) {
    options.onSlowCallback = [call = Callable(function)](const tivra::SlowCallback& slow) {
        call.call([&] {
            nb::dict report;
            report["function"] = toStr(slow.function);
            report["symbol"] = toStr(slow.symbol);
            report["source"] = slow.source;
            report["seconds"] = static_cast<double>(slow.duration.count()) / 1e3;
            report["running"] = slow.isRunning;
            return nb::make_tuple(report);
        });
    };
}

/// What it gives stays in Python's memory as long as Python keeps it.
void onPassword(FeedOptions& options, const nb::object& function) {
    options.password = tivra::Password();
    options.onPassword = [call = Callable(function)](const std::string& hub) {
        tivra::Password password;
        call.ask([&] { return nb::make_tuple(toStr(hub)); },
                 [&](const nb::object& result) {
                     Py_ssize_t length = 0;
                     if (PyUnicode_Check(result.ptr()) == 0)
                         PyErr_Format(PyExc_TypeError, "the password has to be a text, not %.100s",
                                      Py_TYPE(result.ptr())->tp_name);
                     else if (const char* const text = PyUnicode_AsUTF8AndSize(result.ptr(), &length))
                         password = tivra::Password(std::string(text, static_cast<std::size_t>(length)));
                     if (PyErr_Occurred() != nullptr)
                         throw nb::python_error();
                 });
        return password;
    };
}

} // namespace

nb::dict toHubDict(const tivra::ConnectionEvent& event) {
    nb::dict hub;
    hub["hub"] = toStr(event.hub);
    hub["from_state"] = static_cast<int>(event.from);
    hub["state"] = static_cast<int>(event.to);
    hub["cause"] = toStr(event.cause);
    hub["system_error"] = event.systemError;
    hub["status"] = event.status;
    hub["status_name"] = toStr(event.statusName);
    hub["next_attempt"] = event.nextAttemptAt ? toDatetime(*event.nextAttemptAt) : nb::none();
    hub["time"] = event.time.time_since_epoch().count() == 0 ? nb::none() : toDatetime(event.time);
    return hub;
}

void bindOptions(nb::module_& module) {
    nb::class_<FeedOptions>(module, "Options", "What a feed is opened with.")
        .def(nb::init<>())
        .def("set", [](FeedOptions& self, const std::string& name,
                       const std::string& value) { self.set(name, value); })
        .def("set_password",
             [](FeedOptions& self, const std::string& text) {
                 self.password = tivra::Password(text);
                 self.onPassword = nullptr;
             })
        .def("on_password", &onPassword)
        .def("apply_url", [](FeedOptions& self, const std::string& url) { self.applyUrl(url); })
        .def("apply_file", [](FeedOptions& self, const std::string& path) { self.applyFile(path); })
        .def("apply_environment", [](FeedOptions& self) { self.applyEnvironment(); })
        .def("on_state", &onState)
        .def("on_connection", &onConnection)
        .def("on_error", &onError)
        .def("on_slow_callback", &onSlowCallback)
        .def_prop_ro("hosts", [](const FeedOptions& self) {
            nb::list hosts;
            for (const std::string& host : self.hosts)
                hosts.append(toStr(host));
            return hosts;
        });
    module.def("password_from_environment", [](const std::string& name) {
        return toStr(tivra::Password::fromEnvironment(name.c_str()).text());
    });
    module.def("password_from_file",
               [](const std::string& path) { return toStr(tivra::Password::fromFile(path).text()); });
}

} // namespace tivra_python
