// The forms that there are.
#ifndef FORMS_FORMS_H
#define FORMS_FORMS_H

#include "forms/form.h"

namespace cg
{

// The form that the session asks for.
const Form &form_of(const Session &session);

} // namespace cg

#endif
