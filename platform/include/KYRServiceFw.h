#pragma once

/// What the framework was started with. This service reads none of it.
struct KYRServiceFw_Args {
    int argc = 0;
    char** argv = nullptr;
};

// The three entry points that a service exports. The platform's framework owns `main` and calls them, in this order,
// on one thread.

/// Brings the service up.
/// @returns 1.
int KYR_ServiceFw_Init(KYRServiceFw_Args& args);

/// Runs the service; never returns. The process ends when the framework ends it.
int KYR_ServiceFw_Exec();

/// Shuts the service down. May be called without a KYR_ServiceFw_Init before it, and more than once. The framework
/// may call it from another thread, since KYR_ServiceFw_Exec keeps the first one.
void KYR_ServiceFw_Deinit();
