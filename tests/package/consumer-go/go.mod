module consumer

go 1.19

require kiv v0.0.0

replace kiv => ../kiv
