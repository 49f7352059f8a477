#pragma once

#include <string>

#include "http/proxy/request_proxy.h"

/// Downloads a CRL, over plain HTTP too, as most authorities publish it. The request chooses its own proxy from the
/// settings that it is given. Waits for its end, at most as long as the default time limits say; any thread.
/// \param body  the response body, whatever the status.
/// \return true for a status from 200 to 299.
bool downloadCrl(const std::string& url, const RequestProxy& proxy, std::string& body);
