#pragma once

#include <cstddef>
#include <deque>
#include <string>

#include <kvcore/core/String.h>
#include <kvcore/platform/export.h>
#include <kvcore/streams/Streams.h>

/// Writes an XML document forward only, as the caller makes the calls. The calls' order is the document; all that is
/// kept is the stack of open elements.
///
/// The output is UTF-8 without a byte-order mark. Nothing is held back: each call reaches the stream before it returns,
/// so a buffered stream below is the caller's choice. The caller ends every element; the destructor does not.
///
/// Formatting, when it is on, puts each tag, comment and run of text on a line of its own ("\n" alone), indented by two
/// blanks for each open element. It adds white space to text, so an element whose text counts is started with
/// `indentContent` false.
///
/// Names and narrow texts are UTF-8; a String is converted with String::Utf8. Kept: names are neither checked nor
/// escaped, nor are attributes checked for duplicates. Values, texts and comments end at their first NUL. In them tab,
/// line feed, carriage return, '"', '&', '<' and '>' are written as references, so that they survive any parser;
/// control characters besides, which XML cannot hold, are passed through. Kept: "--" in a comment is, too.
///
/// Elements may be nested as deep as the caller likes. XMLParser reads 256 levels on systems whose document component
/// is this library's own; texts, values and comments it reads whole, whatever their length.
///
/// Failures of the stream pass through; what was written before stays written, and the writer stands where the part of
/// the call that failed began. All operations return the writer, so that calls can be chained.
///
/// Threads: an object belongs to one thread.
class KVCORE_API XMLWriter
{
public:
    /// A call that needs an open element, or an open start tag, found none: "No open element". Thrown by value.
    struct KVCORE_API Exception
    {
        String message;
    };

    /// Writes the declaration, `<?xml version="1.0"?>`, to `stream`, which must outlive the writer. `indent` switches
    /// formatting on.
    XMLWriter(OutputStream & stream, bool indent);
    /// Closes nothing and writes nothing: a start tag that is still open stays without its ">".
    ~XMLWriter();

    /// Starts an element, which ends with WriteEndElement. With `indentContent` false, formatting is off for everything
    /// inside it, its end tag included.
    XMLWriter & WriteStartElement(char const * name);
    XMLWriter & WriteStartElement(String const & name);
    XMLWriter & WriteStartElement(char const * name, bool indentContent);
    XMLWriter & WriteStartElement(String const & name, bool indentContent);

    /// Writes an element without content, which takes attributes and no WriteEndElement.
    XMLWriter & WriteEmptyElement(char const * name);
    XMLWriter & WriteEmptyElement(String const & name);

    /// Ends the innermost element. Throws if there is none. Kept: an element without content gets a start and an end
    /// tag, with formatting on two lines.
    XMLWriter & WriteEndElement();

    /// Adds an attribute to the start tag that the call before wrote or added to. Throws after any other call.
    XMLWriter & WriteAttribute(char const * name, String const & value);
    XMLWriter & WriteAttribute(String const & name, String const & value);

    /// Writes text. Throws outside the root element, also for an empty text. Texts that follow one another join, with
    /// formatting too; Kept: an empty one between them ends that, and the next one begins a line.
    XMLWriter & WriteCharacters(String const & text);

    /// Writes a comment, with a blank at either end of it. It may stand outside the root element.
    XMLWriter & WriteComment(String const & text);

private:
    void CloseStartTag();
    void BreakLine();
    void Write(char const * text);
    void Write(char const * bytes, std::size_t size);
    void WriteEscaped(String const & text);

    OutputStream & stream;
    int indentState; // negative: formatting is on; else it is off, until fewer elements than this are open
    std::deque<std::string> openElements;
    bool startTagOpen; // its ">" is still to come
    bool startTagEmpty;
    bool textWritten; // by the call before
};
