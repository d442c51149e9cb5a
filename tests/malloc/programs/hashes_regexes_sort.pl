# Hashes, regular expressions, string building and sorting; every line printed
# depends only on the input (hash keys are always printed sorted).
use strict;
use warnings;
use Digest::MD5 qw(md5_hex);

sub word {
    my ($n) = @_;
    my $out = '';
    $n += 1;
    while ($n) {
        $out = chr(97 + $n % 26) . $out;
        $n = int($n / 26);
    }
    return $out;
}

my %count;
my %by_length;
my @lines;
for my $i (0 .. 59999) {
    my $line = sprintf("%s %d %s=%s; %s", word($i * 7919 % 50021), $i, word($i % 311),
                       word($i * 13 % 977), uc word($i % 37));
    push @lines, $line;
    for my $w (split /[\s=;]+/, $line) {
        $count{$w}++;
        push @{ $by_length{ length $w } }, $w;
    }
}
printf "lines %d words %d lengths %s\n", scalar @lines, scalar keys %count,
    join(',', map { "$_:" . scalar @{ $by_length{$_} } } sort { $a <=> $b } keys %by_length);

my (%pairs, $matched, $text);
for my $line (@lines) {
    my $number = 0;
    if ($line =~ /^(\w+) (\d+) (\w+)=(\w+); ([A-Z]+)$/) {
        $matched++;
        $number = $2;
        $pairs{$3}{$4} += $number % 10;
    }
    (my $copy = $line) =~ s/([aeiou])/\U$1/g;
    $copy =~ tr/a-z/n-za-m/;
    $text .= substr($copy, 0, 12) . "\n" if $number % 5 == 0;
}
my $inner = 0;
$inner += scalar keys %{ $pairs{$_} } for keys %pairs;
printf "matched %d pairs %d inner %d text %d %s\n", $matched, scalar keys %pairs, $inner,
    length $text, md5_hex($text);

my @top = (sort { $count{$b} <=> $count{$a} || $a cmp $b } keys %count)[0 .. 9];
print "top ", join(' ', map { "$_=$count{$_}" } @top), "\n";

my @sorted = sort { length($a) <=> length($b) || $b cmp $a } @lines;
print "shortest $sorted[0]\nlongest $sorted[-1]\n";
my @numeric = sort { $a <=> $b } map { (split / /)[1] * 7 % 1000 } @lines;
printf "numeric %d %d %d\n", $numeric[0], $numeric[ $#numeric / 2 ], $numeric[-1];

my %joined;
for my $key (sort keys %pairs) {
    $joined{ substr($key, 0, 1) } .= join('', sort keys %{ $pairs{$key} });
}
for my $k (sort keys %joined) {
    printf "%s %d %s\n", $k, length $joined{$k}, md5_hex($joined{$k});
}
print "digest ", md5_hex(join("\n", @sorted)), "\n";
