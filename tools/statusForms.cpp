#include "statusForms.h"

#include "statusCheck.h"
#include "statusText.h"

#include <array>
#include <cstdlib>
#include <utility>

namespace tavStatus {

namespace {

constexpr std::array<std::pair<std::string_view, Form>, 4> forms = {{{"text", Form::text},
                                                                     {"json", Form::json},
                                                                     {"metrics", Form::metrics},
                                                                     {"check", Form::check}}};

std::string textIn(const Status& status, Form form) {
    switch (form) {
    case Form::json:
        return jsonText(status);
    case Form::metrics:
        return metricsText(status);
    case Form::check:
        return checkText(status);
    case Form::text:
        break;
    }
    return statusText(status);
}

int exitStatusFor(const Status& status, Form form) {
    if (form == Form::check) {
        return static_cast<int>(worstOf(findingsIn(status)));
    }
    return status.bmc.answers != 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

} // namespace

std::optional<Form> namedForm(std::string_view name) {
    for (const auto& [known, form] : forms) {
        if (name == known) {
            return form;
        }
    }
    return std::nullopt;
}

Shown showStatus(const Status& status, Form form) {
    const bool forPrograms = form == Form::json || form == Form::metrics;
    return {textIn(status, form), forPrograms ? status.bmc.trouble : "",
            exitStatusFor(status, form)};
}

} // namespace tavStatus
