#pragma once
// What the updater will do with a package on an instrument, stated in what can be observed: the lines
// the message view shows, the target commands in order with their outcome, what ends up where (root
// files, partitions, the PIC's memory) and how the job ends. Lint's findings, inspect's report and
// preview's comparison are all read from this one prediction.

#include "CommandGrammar.h"
#include "InstrumentProfile.h"
#include "Package.h"
#include "PicProgram.h"
#include "RootModel.h"
#include "TargetCommands.h"

#include <QVector>
#include <memory>

namespace predict {

using target::Exit;

enum class Colour
{
    Plain,
    Red,
    Green,
    Orange
};

struct Event
{
    enum class Type
    {
        View,
        Run
    };
    Type type = Type::View;
    int line = 0; // the command-list line; 0 before the list, -1 after it
    Colour colour = Colour::Plain;
    QString text;    // view: the appended text (a coloured line's message); run: argv as the trace has it
    QString command; // run: the command line as the updater builds it
    QString shown, shownColour; // view: what the view's document gained, as the trace records it
    Exit exit = Exit::Success;
    bool traced = true;    // run: the trace records it
    bool optional = false; // depends on an outcome the tool cannot know
};

struct Finding
{
    QString rule;
    int line = 0; // 0: the package as a whole
    QString command;
    QString message;
};

enum class End
{
    Complete,      // "Update complete"
    Failed,        // "Some of the updates failed"
    NoPackage,     // "Could not find update file"
    ExtractFailed, // "Failed to extract update files"
    NoCommandList, // "Failed to open update file"
    Hang,          // no end: the updater waits forever
    Unknown,       // complete or failed, the tool cannot tell
};

struct Write
{
    QString path;
    rootfs::Node node; // nullptr: removed
};

struct Line
{
    int number = 0;
    QString text, keyword, argument;
    const grammar::Command* command = nullptr;
    bool failed = false, hangs = false, uncertain = false;
    bool scriptEffects = false;     // runs a script whose own commands change what the tool does not predict
    bool syncs = false;             // runs a script whose last command is sync
    QString payload;                // the file of the unpacked package it reads
    QString payloadKind;            // what that file is, as the payload checks read it (payload::describe)
    QVector<Write> writes;          // root paths as this line left them
    QStringList partitions;         // partitions it wrote
    QVector<pic::Range> picWritten; // program memory records written
    QStringList picConfig;          // configuration bytes written: "0x300001 CONFIG1H = 0x02"
};

struct Prediction
{
    QString packageName;
    QString updater; // the instrument's updater program (the profile's)
    bool pcJob = false;
    QVector<Event> events;
    QVector<Line> lines;
    QVector<Finding> findings;
    QVector<Write> preambleWrites; // the unpacked package, before the first line
    End end = End::Complete;
    std::shared_ptr<rootfs::Tree> root; // the file system after the job
    QMap<QString, target::Partition> partitions;
    bool picProgrammed = false; // a PIC step ran (its erase at least)
    bool picKnown = false;      // `pic` is the PIC's memory: a PIC step of this package or an earlier one
    pic::Memory pic;
    // The updater's system type at the end, and the line of this package that set it last (0: none did,
    // it is the one the job started with).
    grammar::SystemType systemType = grammar::SystemType::Nand;
    int systemLine = 0;

    bool hasErrors() const;
    // The start of the view's last line, empty when the job never ends.
    QString endText() const;
    // Why the instrument after this job is not known well enough to predict a next package from it (the
    // job hangs, an outcome or a script's doing is unknown); empty when it is.
    QString unknownEnd() const;
};

struct Options
{
    bool pcJob = false;
    QString archiveName; // the package's name on the medium (a folder gets a name the updater finds)
    // The package before this one in the same run of the updater: this one starts where that one ended
    // (the root with what it unpacked into /tmp, the system type, the partitions, the PIC). Its
    // unknownEnd() must be empty.
    const Prediction* after = nullptr;
};

Prediction predict(const package::Package& pkg, const profile::Profile& profile, const Options& options = {});

QString colourName(Colour colour);
QString exitName(Exit exit);
QString endName(End end);
// A trace line's text escaped as the trace escapes it (backslash and line feed).
QString escaped(const QString& text);

} // namespace predict
