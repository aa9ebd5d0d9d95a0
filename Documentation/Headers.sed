# What nobody calls by name stays out of the reference: deleted members, destructors, what copies,
# constructors that take a type which is closed to others, specialisations of templates, and a
# template that is declared for the sake of a friend. Lines are emptied, so that they keep their
# numbers.
/= delete;$/ s/.*//
/ ~[A-Z]/ s/.*//
/&) = default;$/ s/.*//
/Closed to others/,/);$/ s/.*//
/^template <>$/,/^};$/ s/.*//
/^template <typename Value>$/,/;$/ s/.*//
