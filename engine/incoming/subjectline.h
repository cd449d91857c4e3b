// subjectline.h - what is put into subjects, and taken out of them again.
//
// Subjects are decoded, in UTF-8, on one line.
//
// Threads  Any.

#ifndef LISTHAVEN_ENGINE_INCOMING_SUBJECTLINE_H
#define LISTHAVEN_ENGINE_INCOMING_SUBJECTLINE_H

#include <string>
#include <string_view>

// Without what replies put in front: "Re: RE: Re[2]: x" gives "x".
std::string_view WithoutReplyMarks(std::string_view subject) noexcept;

// "[Tag] subject", with every earlier tag taken out and one "Re:" left:
// "Re: [Tag] Re: [Tag] x" gives "[Tag] Re: x".
std::string TagSubject(std::string_view subject, std::string_view tag);

// " [ID:" + eight hexadecimal digits + "]", new each time, at the end; and any such taken out.
std::string WithSubjectId(std::string_view subject);
std::string WithoutSubjectIds(std::string_view subject);

// Without identifiers and without the token of a signature.
std::string PlainSubject(std::string_view subject);

#endif  // LISTHAVEN_ENGINE_INCOMING_SUBJECTLINE_H
