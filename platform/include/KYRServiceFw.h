#pragma once

/// The framework's command line. This service does not read it.
struct KYRServiceFw_Args {
    int argc = 0;
    char** argv = nullptr;
};

// The three entry points that a service exports. The platform's framework owns `main` and calls them in this order on
// one thread.

/// Starts the service.
/// @returns 1.
int KYR_ServiceFw_Init(KYRServiceFw_Args& args);

/// Runs the service; never returns. The framework ends the process.
int KYR_ServiceFw_Exec();

/// Shuts the service down. The framework may call it more than once, and without KYR_ServiceFw_Init. It may call it on
/// another thread, since KYR_ServiceFw_Exec never leaves the first one.
void KYR_ServiceFw_Deinit();
