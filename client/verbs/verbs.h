// SPDX-License-Identifier: MIT
// The verbs. Each does what its help says and returns the exit status.
#pragma once

#include "client/verbs/options.h"

namespace client {

int PinVerb(const FileVerbOptions& options);
int UnpinVerb(const FileVerbOptions& options);
int ReloadVerb(const VolumeVerbOptions& options);
int PendVerb(const VolumeVerbOptions& options);
int ReleaseVerb(const VolumeVerbOptions& options);
int WaitVerb(const WaitVerbOptions& options);
int ListVerb(const ListOptions& options);
int StatusVerb(const StatusOptions& options);
int MetricsVerb(const MetricsOptions& options);
int HealthVerb(const HealthOptions& options);
int CheckVerb(const CheckOptions& options);
int ExplainVerb(const ExplainOptions& options);
int MapVerb(const MapOptions& options);
int ForgetVerb(const ForgetOptions& options);
int ReadyVerb(const ReadyOptions& options);
int DoctorVerb(const DoctorOptions& options);
int ApplyVerb(const ApplyOptions& options);
int RestoreVerb(const RestoreOptions& options);
int KeepCopyVerb(const CommonOptions& options);

}  // namespace client
