// Text for people: tables, facts and lines, in colours where the output is a terminal.
//
// What is for eyes only, a table that is cut to the terminal and a summary at its end, never gets into a
// pipe.
#ifndef FORMS_TEXT_FORM_H
#define FORMS_TEXT_FORM_H

#include <string>

#include "forms/form.h"

namespace cg
{

extern const Form text_form;

// "1/3/0 lc-48: asked m1, m2"
std::string event_text(const Event &event);
Tone tone_of(const Event &event);

// One line: "WARN  users               anyone may do everything; fix: ...".
std::string finding_line(const Finding &finding);

} // namespace cg

#endif
