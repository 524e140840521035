#!/usr/bin/perl
# SPDX-License-Identifier: BSD-3-Clause
#
# check-includes.pl [directory]
#
# Holds the includes of the library in the directory, this project unless told otherwise, against the
# order of its subsystems, and prints a line for each that breaks a rule. Ends with 1 when there is one.
use strict;
use warnings;

use File::Basename qw(basename dirname);
use File::Find qw(find);

# What the files of a subsystem may include. A file belongs to the one with the longest name that it is
# below. Whoever adds an arrow here asks first whether one leads back already.
my %MAY_INCLUDE = (
    'resources' => ['resources'],
    'support' => ['support'],
    'cert' => ['cert', 'support'],
    'socket' => ['socket', 'cert', 'support'],
    'store' => ['store', 'store/platform', 'cert', 'support'],
    'store/platform' => ['store/platform', 'cert', 'support'],
    'store/platform/linux' =>
        ['store/platform/linux', 'store/platform', 'store/validation', 'cert', 'support'],
    'store/validation' => ['store/validation', 'cert', 'support'],
    'support/module' => ['support/module', 'socket', 'store', 'cert', 'support', 'resources'],
);

# What is no part of the library.
my $BESIDE = qr{^(?:\.|build|(?:benchmarks|cmake|docs|examples|fuzz|tests)$)};

# Headers of an operating system, and who may know one.
my $SYSTEM_HEADER = qr{^(?:sys/|linux/|(?:windows|wincrypt|unistd|fcntl|poll|dlfcn|pthread)\.h$)};
my %KNOWS_A_SYSTEM =
    map { $_ => 1 } qw(support support/module store/platform store/platform/linux);
# Path validation does not even know the shapes of one.
my $SYSTEM_SHAPE = qr{CryptoApi|CERT_(?:TRUST|CHAIN|STORE|CONTEXT)|\b(?:DWORD|HANDLE)\b};

my $faults = 0;

sub complain {
    my ($place, $text) = @_;
    print "$place: $text\n";
    ++$faults;
}

sub subsystem_of {
    my ($directory) = @_;
    while (!exists $MAY_INCLUDE{$directory}) {
        my $above = dirname($directory);
        return undef if $above eq $directory || $above eq '.';
        $directory = $above;
    }
    return $directory;
}

sub read_file {
    my ($name) = @_;
    open(my $file, '<', $name) or die "check-includes: $name: $!\n";
    local $/;
    my $text = <$file>;
    return defined $text ? $text : '';
}

# Returns the names of the files that a test accepts, below what belongs to the library.
sub library_files {
    my ($accepts) = @_;
    my @names;
    opendir(my $top, '.') or die "check-includes: $!\n";
    my @directories = sort grep { -d && !/$BESIDE/ } readdir $top;
    find({wanted => sub { push @names, $_ if $accepts->($_) && -f }, no_chdir => 1}, @directories)
        if @directories;
    return sort @names;
}

# Returns where each header lies that hosts include as <Ferrule/...>.
sub public_headers {
    my %path_of;
    for my $list (library_files(sub { $_[0] =~ m{/CMakeLists\.txt$} })) {
        my ($headers) = read_file($list) =~ /\bPUBLIC_HEADERS\s+([^)]*?)\s*(?:\b[A-Z_]{2,}\b|\))/;
        next unless defined $headers;
        $path_of{basename($_)} = dirname($list) . "/$_" for split ' ', $headers;
    }
    return %path_of;
}

my %PUBLIC;

# Returns where an included header of the project lies, undef for those of others. Complains about
# a wrong name or form.
sub own_header {
    my ($place, $quote, $name) = @_;
    if ($quote eq '<' && $name =~ m{^Ferrule/(.*)}) {
        complain($place, "<$name>: there is no such public header") unless $PUBLIC{$1};
        return $PUBLIC{$1};
    }
    my $is_own = -f $name && defined subsystem_of(dirname($name));
    if ($quote eq '<') {
        complain($place, "<$name>: write \"$name\" for a header of the project") if $is_own;
        return $is_own ? $name : undef;
    }
    if (!$is_own) {
        complain($place, "\"$name\": there is no such header in the library, by its path from the root");
        return undef;
    }
    my ($public) = grep { $PUBLIC{$_} eq $name } keys %PUBLIC;
    complain($place, "\"$name\": write <Ferrule/$public> for a public header") if $public;
    return $name;
}

sub check_include {
    my ($place, $subsystem, $quote, $name) = @_;
    my $shown = $quote eq '<' ? "<$name>" : "\"$name\"";
    complain($place, "$shown: $subsystem knows no operating system")
        if $name =~ $SYSTEM_HEADER && !$KNOWS_A_SYSTEM{$subsystem};
    my $path = own_header($place, $quote, $name);
    return unless defined $path;
    my $target = subsystem_of(dirname($path));
    my @allowed = @{$MAY_INCLUDE{$subsystem}};
    return if grep { $_ eq $target } @allowed;
    complain($place, "$shown: $subsystem does not include $target, only " . join(', ', @allowed));
}

sub check_file {
    my ($name) = @_;
    my $subsystem = subsystem_of(dirname($name));
    if (!defined $subsystem) {
        complain("$name:1", 'the file belongs to no subsystem');
        return;
    }
    my $number = 0;
    for my $line (split /\n/, read_file($name)) {
        my $place = "$name:" . ++$number;
        check_include($place, $subsystem, $1, $2) if $line =~ /^\s*#\s*include\s*([<"])([^>"]+)[>"]/;
        complain($place, "$&: $subsystem does not know how an operating system puts it")
            if $subsystem eq 'store/validation' && $line =~ $SYSTEM_SHAPE;
    }
}

my $root = @ARGV ? $ARGV[0] : dirname($0) . '/..';
chdir $root or die "check-includes: $root: $!\n";
%PUBLIC = public_headers();
my @files = library_files(sub { $_[0] =~ /\.(?:h|cpp)$/ });
die "check-includes: there are no sources in $root\n" unless @files;
check_file($_) for @files;
exit($faults ? 1 : 0);
