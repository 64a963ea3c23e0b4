#include "deskaid/diag/internet_error_text.h"

namespace {

constexpr int32_t kFirstCode = 12001;
constexpr int32_t kLastCode = 12036;

// Indexed by code - 12001. The texts are shown to users as they have always read: the missing
// full stop of 12001, the wording of 12007 and the trailing space of five texts stay as they are.
const char* const kTexts[kLastCode - kFirstCode + 1] = {
    "No more handles could be generated at this time",
    "The request has timed out.",
    "An extended error was returned from the server.",
    "An internal error has occurred.",
    "The URL is invalid.",
    "The URL scheme could not be recognized, or is not supported.",
    "The server name could not be resolved, please check internet connect.",
    "The requested protocol could not be located.",
    "A request to InternetQueryOption or InternetSetOption specified an invalid option value.",
    "The length of an option supplied to InternetQueryOption or InternetSetOption is incorrect "
    "for the type of option specified.",
    "The request option can not be set, only queried. ",
    "The Win32 Internet support is being shutdown or unloaded.",
    "The request to connect and login to an FTP server could not be completed because the "
    "supplied user name is incorrect.",
    "The request to connect and login to an FTP server could not be completed because the "
    "supplied password is incorrect. ",
    "The request to connect to and login to an FTP server failed.",
    "The requested operation is invalid. ",
    "The operation was canceled, usually because the handle on which the request was operating "
    "was closed before the operation completed.",
    "The type of handle supplied is incorrect for this operation.",
    "The requested operation can not be carried out because the handle supplied is not in the "
    "correct state.",
    "The request can not be made via a proxy.",
    "A required registry value could not be located. ",
    "A required registry value was located but is an incorrect type or has an invalid value.",
    "Direct network access cannot be made at this time. ",
    "An asynchronous request could not be made because a zero context value was supplied.",
    "An asynchronous request could not be made because a callback function has not been set.",
    "The required operation could not be completed because one or more requests are pending.",
    "The format of the request is invalid.",
    "The requested item could not be located.",
    "The attempt to connect to the server failed.",
    "The connection with the server has been terminated.",
    "The connection with the server has been reset.",
    nullptr,
    nullptr,
    nullptr,
    nullptr,  // 12032 to 12035 carry no text
    "The request failed because the handle already exists.",
};

}  // namespace

const char* InternetErrorText(int32_t code) {
  if (code < kFirstCode || code > kLastCode) return nullptr;
  return kTexts[code - kFirstCode];
}
