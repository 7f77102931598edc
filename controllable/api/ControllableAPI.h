#pragma once

// All interfaces of the parameter API in one include.
#include "controllable/api/AutomationHandle.h"
#include "controllable/api/AutomationNormalizer.h"
#include "controllable/api/ChangeListenerList.h"
#include "controllable/api/ChangeListenerStrategy.h"
#include "controllable/api/Controllable.h"
#include "controllable/api/ControllableErrors.h"
#include "controllable/api/ControllableForward.h"
#include "controllable/api/Parameter.h"
#include "controllable/api/ParameterChangeListener.h"
#include "controllable/api/ParameterType.h"
#include "controllable/api/ParameterValue.h"
#include "controllable/api/ParameterValueList.h"
#include "controllable/api/ValueConverter.h"
#include "controllable/api/ValueModifier.h"
