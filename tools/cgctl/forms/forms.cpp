// The forms that there are.
#include "forms/forms.h"

#include "forms/json_form.h"
#include "forms/text_form.h"

namespace cg
{

const Form &form_of(const Session &session)
{
    return session.json ? json_form : text_form;
}

} // namespace cg
