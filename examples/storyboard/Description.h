#pragma once

#include <string>

#include <kvcore/examples/storyboard/Model.h>
#include <kvcore/streams/Streams.h>

/// A project as XML for other programs and as a page for people. The schema that descriptions follow and the style
/// sheet of the page are resources of the program.
///
/// Nothing that a project can hold is lost: what XML has no place for is spelled, as the schema says.
namespace Storyboard
{

/// Why a text is no description. `message` ends in a line break, and tells the line where it is known.
struct DescriptionFailure
{
    std::string message;
};

/// Writes a project as XML: each source and each clip once, then the bins with the clips that they play. Failures of
/// the stream pass through.
void WriteDescription(Project const & project, OutputStream & target);

/// Makes the project that a description is of, equal to the one that was written. Throws DescriptionFailure for a text
/// that is not well-formed, does not follow the schema, or describes what no project can hold.
Ptr<Project> ReadDescription(std::string const & xml);

/// Makes a web page of a project, UTF-8, that needs nothing beside itself. It is well-formed XML, too. Throws
/// DescriptionFailure if the platform's component cannot make it.
std::string DescriptionPage(Project const & project);

/// The schema and the style sheet, as their files stand in the sources.
std::string DescriptionSchema();
std::string DescriptionStyleSheet();

} // namespace Storyboard
