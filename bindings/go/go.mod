module kiv

go 1.19
