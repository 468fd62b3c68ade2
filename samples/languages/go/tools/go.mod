// a module file without its module line

go 1.21
