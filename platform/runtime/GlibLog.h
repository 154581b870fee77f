#pragma once

namespace runtime {

/// From now on each warning or error of GLib and the libraries on it is reported in one line, and once: a service
/// without a bus has GLib complain of every signal, and whoever reads standard error may be slow. To be called once.
void reportGlibMessagesOnce();

}  // namespace runtime
