// JSON for programs. Its members are an interface: docs/json.md has them.
#ifndef FORMS_JSON_FORM_H
#define FORMS_JSON_FORM_H

#include "base/json.h"
#include "forms/form.h"

namespace cg
{

extern const Form json_form;

// {"version": 1, "time": ..., "event": ..., "card": ..., ...}
Json event_json(const Event &event);

// {"version": 2, "name": ..., "state": ..., "found": ..., "fix": ...}
Json finding_json(const Finding &finding);

} // namespace cg

#endif
