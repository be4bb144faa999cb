#pragma once

// The interface numbers that IKernelBase::GetInterface takes.
constexpr unsigned long IID_KERNEL_SERVICE = 4097;
constexpr unsigned long IID_ERROR_REPORTER = 4106;
constexpr unsigned long IID_EMAIL_SERVICE = 4117;
constexpr unsigned long IID_ACTION_REGISTRY = 4121;
constexpr unsigned long IID_ACTION = 4123;
constexpr unsigned long IID_NAME_SERVICE = 4136;
constexpr unsigned long IID_KERNEL_CONTROL = 4138;
constexpr unsigned long IID_LOG_FILE = 4141;
constexpr unsigned long IID_STRING_TABLE = 4142;
constexpr unsigned long IID_RUN_TIME = 4144;
constexpr unsigned long IID_UPLOAD_SERVICE = 4149;
